#include "ocr/TextQuality.h"

#include <QDir>
#include <QFileInfo>
#include <QLocale>
#include <QMutex>
#include <QStringEncoder>
#include <QTextBoundaryFinder>

#include <hunspell/hunspell.hxx>

#include <atomic>
#include <memory>
#include <vector>

namespace TextQuality {
namespace {

constexpr int minimumLetters = 3;
constexpr int enoughWords = 12;
constexpr double knownShare = 0.4;

QStringList dictionaryFolders()
{
    QStringList folders;
    for (const QString &folder : qEnvironmentVariable("DICPATH").split(QLatin1Char(':'), Qt::SkipEmptyParts))
        folders << folder;
    folders << QStringLiteral("/usr/share/hunspell") << QStringLiteral("/usr/share/myspell")
            << QStringLiteral("/usr/share/myspell/dicts");
    return folders;
}

// "eng" → "en", "chi_sim" → "zh"; empty when Qt doesn't know the language.
QString twoLetterCode(const QString &tesseractLanguage)
{
    const QString base = tesseractLanguage.section(QLatin1Char('_'), 0, 0);
    const QLocale::Language language = QLocale::codeToLanguage(base, QLocale::AnyLanguageCode);
    if (language == QLocale::AnyLanguage || language == QLocale::C)
        return {};
    return QLocale::languageToCode(language, QLocale::ISO639Part1);
}

struct Dictionary {
    std::unique_ptr<Hunspell> hunspell;
    std::optional<QStringEncoder> encoder; // absent for UTF-8, the usual encoding

    bool knows(const QString &word)
    {
        const std::string bytes
            = encoder ? QByteArray(encoder->encode(word)).toStdString() : word.toUtf8().toStdString();
        return hunspell->spell(bytes) || !hunspell->stem(bytes).empty();
    }
};

std::vector<Dictionary> loadDictionaries(const QString &ocrLanguages)
{
    std::vector<Dictionary> loaded;
    const QStringList folders = dictionaryFolders();
    for (const QString &name : dictionariesFor(ocrLanguages)) {
        for (const QString &folder : folders) {
            const QString aff = folder + QLatin1Char('/') + name + QStringLiteral(".aff");
            const QString dic = folder + QLatin1Char('/') + name + QStringLiteral(".dic");
            if (!QFileInfo::exists(aff) || !QFileInfo::exists(dic))
                continue;
            Dictionary dictionary { std::make_unique<Hunspell>(
                                        QFile::encodeName(aff).constData(), QFile::encodeName(dic).constData()),
                std::nullopt };
            const QString encoding = QString::fromStdString(dictionary.hunspell->get_dict_encoding());
            if (encoding.compare(QLatin1String("UTF-8"), Qt::CaseInsensitive) != 0) {
                QStringEncoder encoder(encoding.toLatin1().constData());
                if (!encoder.isValid())
                    break;
                dictionary.encoder.emplace(std::move(encoder));
            }
            loaded.push_back(std::move(dictionary));
            break;
        }
    }
    return loaded;
}

// The languages in use; threads keep their own dictionaries (Hunspell is not thread-safe) and load
// them again when the generation moves on.
QMutex languagesMutex;
QString currentLanguages = QStringLiteral("eng");
std::atomic<int> languagesGeneration { 0 };

std::vector<Dictionary> &threadDictionaries()
{
    thread_local std::vector<Dictionary> dictionaries;
    thread_local int generation = -1;
    const int current = languagesGeneration.load();
    if (generation != current) {
        QString languages;
        {
            QMutexLocker lock(&languagesMutex);
            languages = currentLanguages;
        }
        dictionaries = loadDictionaries(languages);
        generation = current;
    }
    return dictionaries;
}

bool isLetterOnly(QStringView token, int &characters)
{
    characters = 0;
    QTextBoundaryFinder graphemes(QTextBoundaryFinder::Grapheme, token.data(), int(token.size()));
    qsizetype start = 0;
    for (qsizetype end = graphemes.toNextBoundary(); end != -1; end = graphemes.toNextBoundary()) {
        // A character is its first code point plus any combining marks that follow it.
        const char32_t first = QStringView(token.mid(start, end - start)).toUcs4().value(0);
        if (!QChar::isLetter(first))
            return false;
        ++characters;
        start = end;
    }
    return true;
}

} // namespace

QStringList dictionariesFor(const QString &ocrLanguages)
{
    QStringList names;
    const QStringList folders = dictionaryFolders();
    for (const QString &language : ocrLanguages.split(QLatin1Char('+'), Qt::SkipEmptyParts)) {
        const QString code = twoLetterCode(language.trimmed());
        if (code.isEmpty())
            continue;
        // Prefer the language's main country ("de_DE"), then any other installed variant.
        const QString preferred = QLocale(code).name();
        QStringList candidates { preferred };
        for (const QString &folder : folders) {
            const QStringList found = QDir(folder).entryList(
                { code + QStringLiteral("_*.dic"), code + QStringLiteral(".dic") }, QDir::Files, QDir::Name);
            for (const QString &file : found)
                candidates << file.chopped(4);
        }
        for (const QString &candidate : candidates) {
            bool installed = false;
            for (const QString &folder : folders)
                installed
                    = installed || QFileInfo::exists(folder + QLatin1Char('/') + candidate + QStringLiteral(".dic"));
            if (installed && !names.contains(candidate)) {
                names << candidate;
                break;
            }
        }
    }
    return names;
}

void useLanguages(const QString &ocrLanguages)
{
    QMutexLocker lock(&languagesMutex);
    if (currentLanguages == ocrLanguages)
        return;
    currentLanguages = ocrLanguages;
    ++languagesGeneration;
}

bool available()
{
    static const bool englishInstalled = !dictionariesFor(QStringLiteral("eng")).isEmpty();
    return englishInstalled;
}

Words words(const QString &text)
{
    Words counted;
    if (text.isEmpty())
        return counted;
    const bool haveDictionaries = available();
    std::vector<Dictionary> &dictionaries = threadDictionaries();
    QTextBoundaryFinder finder(QTextBoundaryFinder::Word, text);
    qsizetype start = 0;
    for (qsizetype end = finder.toNextBoundary(); end != -1; end = finder.toNextBoundary()) {
        const QStringView token = QStringView(text).mid(start, end - start);
        start = end;
        int characters = 0;
        if (!isLetterOnly(token, characters) || characters < minimumLetters)
            continue;
        ++counted.total;
        // With no dictionary for the reading languages nothing can be judged, so every word counts.
        bool known = !haveDictionaries || dictionaries.empty();
        for (Dictionary &dictionary : dictionaries) {
            if (known)
                break;
            known = dictionary.knows(token.toString());
        }
        if (known)
            ++counted.real;
    }
    return counted;
}

bool looksGarbled(const QStringList &pages, int sample)
{
    for (const QString &page : pages) {
        const QString sampled = page.left(sample);
        if (sampled.isEmpty())
            continue;
        const Words counted = words(sampled);
        if (counted.total >= enoughWords && counted.total * knownShare > counted.real)
            return true;
    }
    return false;
}

} // namespace TextQuality
