#include "ocr/OcrLanguages.h"

#include <QFileInfo>
#include <QRegularExpression>
#include <QSettings>

namespace OcrLanguages {

QString setting()
{
    const QString value = QSettings().value(settingKey).toString().trimmed();
    return value.isEmpty() ? defaultValue : value;
}

QString dataFolder()
{
    // Tesseract 5 takes the variable as the tessdata folder itself.
    const QString prefix = qEnvironmentVariable("TESSDATA_PREFIX");
    return prefix.isEmpty() ? QStringLiteral("/usr/share/tesseract-ocr/5/tessdata") : prefix;
}

QString dataPackage(const QString &language)
{
    return QStringLiteral("tesseract-ocr-") + language.toLower().replace(QLatin1Char('_'), QLatin1Char('-'));
}

std::optional<QString> problem(const QString &languages)
{
    static const QRegularExpression form(QStringLiteral("^[A-Za-z0-9_]+(\\+[A-Za-z0-9_]+)*$"));
    if (!form.match(languages).hasMatch())
        return QStringLiteral("“") + languages
            + QStringLiteral("” is not a list of reading languages; write them as Tesseract does, for example "
                             "eng or eng+deu");
    QStringList missing;
    QStringList packages;
    for (const QString &language : languages.split(QLatin1Char('+'))) {
        if (QFileInfo::exists(dataFolder() + QLatin1Char('/') + language + QStringLiteral(".traineddata")))
            continue;
        missing << QStringLiteral("“") + language + QStringLiteral("”");
        packages << dataPackage(language);
    }
    if (missing.isEmpty())
        return std::nullopt;
    return QStringLiteral("Text recognition in ") + missing.join(QStringLiteral(", "))
        + QStringLiteral(" isn't installed: install the Debian package ") + packages.join(QStringLiteral(" "));
}

} // namespace OcrLanguages
