#pragma once

#include <QString>
#include <QStringList>

// How word-like a recognised text is: letter-only words of three or more characters, and how many of
// them a dictionary of the reading languages knows.
namespace TextQuality {

struct Words {
    int total = 0;
    int real = 0;
    bool operator==(const Words &) const = default;
};

Words words(const QString &text);

// True as soon as one page's first `sample` characters hold at least 12 counted words of which fewer
// than 40 % are known.
bool looksGarbled(const QStringList &pages, int sample);

// Whether an English dictionary is installed. Without one every counted word counts as known, so no
// text ever looks garbled.
bool available();

// The dictionaries to consult, from the reading languages in Tesseract's form ("eng+deu"). Takes effect
// for every thread on its next count. English is used until this is called.
void useLanguages(const QString &ocrLanguages);

// Every installed dictionary's name ("en_US") for the reading languages; the folders searched are
// Hunspell's usual ones.
QStringList dictionariesFor(const QString &ocrLanguages);

} // namespace TextQuality
