#pragma once

#include <QByteArray>
#include <QRectF>
#include <QSizeF>
#include <QString>
#include <QStringList>

#include <optional>
#include <vector>

// One page of a scanned-looking PDF: the text is typeset, rasterised like a scanner's image, turned
// as the paper lay on the glass, and placed on the page as a picture.
struct ScanPage {
    QStringList lines; // from the top, at the left margin
    QStringList rightColumn; // beside `lines`, from the same height, in the right half
    int turned = 0; // degrees the paper lay turned clockwise on the glass
    int rotateAttribute = 0; // the page's /Rotate
    std::optional<QRectF> cropBox; // in points, in the page's own (unrotated) space
    QSizeF size { 612, 792 }; // the paper, in points, upright
    double fontSize = 16;
};

struct PdfPasswords {
    QByteArray user;
    QByteArray owner;
};

// A PDF of scanned pages; encrypted (AES-256) when `passwords` is given.
QByteArray scanPdf(const std::vector<ScanPage> &pages, const std::optional<PdfPasswords> &passwords = std::nullopt);

// A PDF of `count` pages that all show the same scanned page (one picture, shared), for long files.
QByteArray repeatedScanPdf(const ScanPage &page, int count);

// A well-formed PDF whose page tree has no pages.
QByteArray pdfWithoutPages();

// A one-page PDF whose form-field tree names the same field twice as the kids of every field, `levels`
// deep: a tree of 2^levels paths in a few kilobytes, which Poppler walks path by path when it opens it.
QByteArray doublingFormFieldPdf(int levels);

void writeFile(const QString &path, const QByteArray &bytes);
