#pragma once

#include "core/Error.h"
#include "ocr/Reading.h"

#include <QString>

#include <exception>
#include <functional>
#include <optional>
#include <stop_token>
#include <vector>

class TextRecognizer;

// Reading the pages of one PDF into text, and the hash that identifies the file.
namespace OCR {

struct Page {
    QString text;
    int rotation = 0; // degrees clockwise the rendered page must be turned to stand upright
    bool operator==(const Page &) const = default;
};

struct Result {
    std::vector<Page> pages;
    QString sha256;
};

// A file that can't be read as scanned pages. `message` is what the person is shown.
struct Failure : Error {
    using Error::Error;
};

// Called after each page with its zero-based index and the page count.
using PageRead = std::function<void(int index, int count, const Page &page)>;

// Called with the file's SHA-256 once its bytes are read, before anything parses them.
using Hashed = std::function<void(const QString &sha256)>;

// The text of every page of a PDF, and the SHA-256 of its bytes (hashed before anything is parsed).
// Throws Failure for a file that can't be read, isn't a PDF, is locked by a password or has no
// pages; Cancelled when `stop` is requested, checked before each page and before each re-read.
Result recognize(const QString &path, TextRecognizer &recognizer, const std::stop_token &stop = {},
    const PageRead &pageRead = {}, const Hashed &hashed = {});

// Lowercase hexadecimal SHA-256 of the whole file; absent when it can't be read.
std::optional<QString> sha256(const QString &path);

// Reading-order text of one page: lines grouped into rows, columns joined by three spaces, an empty
// line where rows are far apart.
QString layout(const std::vector<Line> &lines);

} // namespace OCR
