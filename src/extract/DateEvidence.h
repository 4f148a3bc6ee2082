#pragma once

#include <QString>
#include <QStringList>

// Whether a date answered by the model is actually written on the page, in any of the common ways.
// Pure functions, safe on any thread.
namespace DateEvidence {

// Every written form (lower case, without white space) that counts as evidence for the date `iso`
// (YYYY-MM-DD): month-first numeric forms with "/", "-" or ".", the input itself, YYYY/MM/DD and
// English month names. Empty when `iso` is not a date with a month from 1 to 12.
QStringList forms(const QString &iso);

// True when one of the forms of `iso` is written in `text` (case and white space ignored) with no digit
// right before or after it: "11/5/2024" is no evidence for 2024-01-05. White space (a line break too)
// next to the form is a boundary, whatever lies beyond it.
bool appears(const QString &iso, const QString &text);

} // namespace DateEvidence
