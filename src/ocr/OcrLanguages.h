#pragma once

#include <QString>
#include <QStringList>

#include <optional>

// The languages pages are read in, in Tesseract's form: "eng", or several joined by "+" ("eng+deu").
namespace OcrLanguages {

inline const QString settingKey = QStringLiteral("OcrLanguages");
inline const QString defaultValue = QStringLiteral("eng");

// The setting as the person left it, or the default.
QString setting();

// Where Tesseract's language data is installed.
QString dataFolder();

// The Debian package with Tesseract's data for the language ("deu" gives tesseract-ocr-deu).
QString dataPackage(const QString &language);

// Why the languages can't be used, naming the package to install; absent when they can.
std::optional<QString> problem(const QString &languages);

} // namespace OcrLanguages
