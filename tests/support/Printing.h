#pragma once

#include <QString>

#include <ostream>

// Failing comparisons of texts show the texts, not their bytes.
inline void PrintTo(const QString &text, std::ostream *out)
{
    *out << '"' << text.toStdString() << '"';
}
