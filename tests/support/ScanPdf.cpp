#include "support/ScanPdf.h"

#include <QFile>
#include <QImage>
#include <QTransform>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFPageObjectHelper.hh>
#include <qpdf/QPDFWriter.hh>

#include <poppler/qt6/poppler-qt6.h>

#include <stdexcept>

namespace {

constexpr double scannerResolution = 200;

std::string pdfString(const QString &text)
{
    std::string escaped;
    for (char c : text.toLatin1().toStdString()) {
        if (c == '(' || c == ')' || c == '\\')
            escaped += '\\';
        escaped += c;
    }
    return '(' + escaped + ')';
}

std::string number(double value)
{
    return QByteArray::number(value, 'f', 2).toStdString();
}

QByteArray written(QPDF &pdf, const std::optional<PdfPasswords> &passwords = std::nullopt)
{
    QPDFWriter writer(pdf);
    writer.setOutputMemory();
    writer.setStaticID(true);
    if (passwords)
        writer.setR6EncryptionParameters(passwords->user.constData(), passwords->owner.constData(), true, true, true,
            true, true, true, qpdf_r3p_full, true);
    writer.write();
    const std::shared_ptr<Buffer> buffer = writer.getBufferSharedPointer();
    return QByteArray(reinterpret_cast<const char *>(buffer->getBuffer()), qsizetype(buffer->getSize()));
}

// The page's text typeset in Helvetica, as the paper itself looks.
QByteArray typesetPage(const ScanPage &page)
{
    QPDF pdf;
    pdf.emptyPDF();
    std::string content = "BT /F1 " + number(page.fontSize) + " Tf\n";
    const double leading = page.fontSize * 1.6;
    const auto column = [&](const QStringList &lines, double x) {
        double y = page.size.height() - 72 - page.fontSize;
        for (const QString &line : lines) {
            content += "1 0 0 1 " + number(x) + ' ' + number(y) + " Tm " + pdfString(line) + " Tj\n";
            y -= leading;
        }
    };
    column(page.lines, 72);
    column(page.rightColumn, page.size.width() * 0.62);
    content += "ET\n";
    QPDFObjectHandle font = pdf.makeIndirectObject(
        QPDFObjectHandle::parse("<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica /Encoding /WinAnsiEncoding >>"));
    QPDFObjectHandle pageObject = pdf.makeIndirectObject(QPDFObjectHandle::parse("<< /Type /Page /MediaBox [0 0 "
        + number(page.size.width()) + ' ' + number(page.size.height()) + "] /Resources << /Font << >> >> >>"));
    pageObject.getKey("/Resources").getKey("/Font").replaceKey("/F1", font);
    pageObject.replaceKey("/Contents", QPDFObjectHandle::newStream(&pdf, content));
    QPDFPageDocumentHelper(pdf).addPage(QPDFPageObjectHelper(pageObject), false);
    return written(pdf);
}

// The paper as the scanner's grey image, turned as it lay.
QImage scannedImage(const ScanPage &page)
{
    const std::unique_ptr<Poppler::Document> typeset = Poppler::Document::loadFromData(typesetPage(page));
    if (!typeset)
        throw std::runtime_error("the typeset page doesn't load");
    typeset->setRenderHint(Poppler::Document::TextAntialiasing);
    QImage image = typeset->page(0)->renderToImage(scannerResolution, scannerResolution);
    image = image.convertToFormat(QImage::Format_Grayscale8);
    if (page.turned % 360 != 0)
        image = image.transformed(QTransform().rotate(page.turned));
    return image;
}

// Adds the pages to `pdf`, `copies` times each, sharing one picture per page.
void addScannedPages(QPDF &pdf, const std::vector<ScanPage> &pages, int copies)
{
    for (const ScanPage &page : pages) {
        const QImage image = scannedImage(page);
        std::string pixels;
        pixels.reserve(std::size_t(image.width()) * std::size_t(image.height()));
        for (int y = 0; y < image.height(); ++y)
            pixels.append(reinterpret_cast<const char *>(image.constScanLine(y)), std::size_t(image.width()));
        QPDFObjectHandle picture = QPDFObjectHandle::newStream(&pdf);
        picture.replaceDict(QPDFObjectHandle::parse("<< /Type /XObject /Subtype /Image /ColorSpace /DeviceGray "
                                                    "/BitsPerComponent 8 /Width "
            + std::to_string(image.width()) + " /Height " + std::to_string(image.height()) + " >>"));
        picture.replaceStreamData(pixels, QPDFObjectHandle::newNull(), QPDFObjectHandle::newNull());

        const bool sideways = page.turned % 180 != 0;
        const double width = sideways ? page.size.height() : page.size.width();
        const double height = sideways ? page.size.width() : page.size.height();
        QPDFObjectHandle pageObject = pdf.makeIndirectObject(QPDFObjectHandle::parse("<< /Type /Page /MediaBox [0 0 "
            + number(width) + ' ' + number(height) + "] /Resources << /XObject << >> >> >>"));
        pageObject.getKey("/Resources").getKey("/XObject").replaceKey("/Scan", picture);
        pageObject.replaceKey("/Contents",
            QPDFObjectHandle::newStream(&pdf, "q " + number(width) + " 0 0 " + number(height) + " 0 0 cm /Scan Do Q"));
        if (page.rotateAttribute != 0)
            pageObject.replaceKey("/Rotate", QPDFObjectHandle::newInteger(page.rotateAttribute));
        if (const std::optional<QRectF> crop = page.cropBox)
            pageObject.replaceKey("/CropBox",
                QPDFObjectHandle::parse("[" + number(crop->left()) + ' ' + number(crop->top()) + ' '
                    + number(crop->right()) + ' ' + number(crop->bottom()) + "]"));
        QPDFPageDocumentHelper(pdf).addPage(QPDFPageObjectHelper(pageObject), false);
        for (int copy = 1; copy < copies; ++copy)
            QPDFPageDocumentHelper(pdf).addPage(QPDFPageObjectHelper(pageObject.shallowCopy()), false);
    }
}

} // namespace

QByteArray scanPdf(const std::vector<ScanPage> &pages, const std::optional<PdfPasswords> &passwords)
{
    QPDF pdf;
    pdf.emptyPDF();
    addScannedPages(pdf, pages, 1);
    return written(pdf, passwords);
}

QByteArray repeatedScanPdf(const ScanPage &page, int count)
{
    QPDF pdf;
    pdf.emptyPDF();
    addScannedPages(pdf, { page }, count);
    return written(pdf);
}

QByteArray pdfWithoutPages()
{
    QPDF pdf;
    pdf.emptyPDF();
    return written(pdf);
}

QByteArray doublingFormFieldPdf(int levels)
{
    QPDF pdf;
    pdf.emptyPDF();
    QPDFObjectHandle page
        = pdf.makeIndirectObject(QPDFObjectHandle::parse("<< /Type /Page /MediaBox [0 0 612 792] /Annots [] >>"));
    QPDFPageDocumentHelper(pdf).addPage(QPDFPageObjectHelper(page), false);
    QPDFObjectHandle field = pdf.makeIndirectObject(
        QPDFObjectHandle::parse("<< /FT /Tx /T (leaf) /Type /Annot /Subtype /Widget /Rect [72 72 144 96] >>"));
    field.replaceKey("/P", page);
    page.getKey("/Annots").appendItem(field);
    for (int level = 0; level < levels; ++level) {
        QPDFObjectHandle parent = pdf.makeIndirectObject(QPDFObjectHandle::parse("<< /T (level) /Kids [] >>"));
        parent.getKey("/Kids").appendItem(field);
        parent.getKey("/Kids").appendItem(field);
        // A kid with a parent is a field of its own, not only a widget.
        field.replaceKey("/Parent", parent);
        field = parent;
    }
    QPDFObjectHandle form = QPDFObjectHandle::parse("<< /Fields [] >>");
    form.getKey("/Fields").appendItem(field);
    pdf.getRoot().replaceKey("/AcroForm", form);
    return written(pdf);
}

void writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        throw std::runtime_error("can't write " + path.toStdString());
}
