#include "support/ScanPdf.h"

#include <QFile>
#include <QImage>
#include <QTransform>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFPageObjectHelper.hh>
#include <qpdf/QPDFWriter.hh>

#include <poppler/qt6/poppler-qt6.h>

#include <functional>
#include <stdexcept>

namespace {

constexpr double scannerResolution = 200;

std::string number(double value)
{
    return QByteArray::number(value, 'f', 2).toStdString();
}

// The PDF that `build` makes out of an empty one.
QByteArray pdfOf(const std::function<void(QPDF &)> &build, const std::optional<PdfPasswords> &passwords = {})
{
    QPDF pdf;
    pdf.emptyPDF();
    build(pdf);
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

// Adds a page of `width` × `height` points that draws `content` with `resources`.
QPDFObjectHandle addPage(
    QPDF &pdf, double width, double height, const std::string &resources, const std::string &content)
{
    QPDFObjectHandle page = pdf.makeIndirectObject(QPDFObjectHandle::parse(
        "<< /Type /Page /MediaBox [0 0 " + number(width) + ' ' + number(height) + "] /Resources " + resources + " >>"));
    page.replaceKey("/Contents", QPDFObjectHandle::newStream(&pdf, content));
    QPDFPageDocumentHelper(pdf).addPage(QPDFPageObjectHelper(page), false);
    return page;
}

// The paper as the scanner's grey image, turned as it lay: its text typeset in Helvetica, then rendered.
QImage scannedImage(const ScanPage &page)
{
    const QByteArray typesetPdf = pdfOf([&](QPDF &pdf) {
        std::string content = "BT /F1 " + number(page.fontSize) + " Tf\n";
        const auto column = [&](const QStringList &lines, double x) {
            double y = page.size.height() - 72 - page.fontSize;
            for (const QString &line : lines) {
                content += "1 0 0 1 " + number(x) + ' ' + number(y) + " Tm "
                    + QPDFObjectHandle::newString(line.toLatin1().toStdString()).unparse() + " Tj\n";
                y -= page.fontSize * 1.6;
            }
        };
        column(page.lines, 72);
        column(page.rightColumn, page.size.width() * 0.62);
        addPage(pdf, page.size.width(), page.size.height(),
            "<< /Font << /F1 << /Type /Font /Subtype /Type1 /BaseFont /Helvetica /Encoding /WinAnsiEncoding >> >> >>",
            content + "ET\n");
    });
    const std::unique_ptr<Poppler::Document> typeset = Poppler::Document::loadFromData(typesetPdf);
    if (!typeset)
        throw std::runtime_error("the typeset page doesn't load");
    typeset->setRenderHint(Poppler::Document::TextAntialiasing);
    const QImage image = typeset->page(0)
                             ->renderToImage(scannerResolution, scannerResolution)
                             .convertToFormat(QImage::Format_Grayscale8);
    return page.turned % 360 == 0 ? image : image.transformed(QTransform().rotate(page.turned));
}

// Adds the pages to `pdf`, `copies` times each, sharing one picture per page.
void addScannedPages(QPDF &pdf, const std::vector<ScanPage> &pages, int copies)
{
    for (const ScanPage &page : pages) {
        const QImage image = scannedImage(page);
        std::string pixels;
        for (int y = 0; y < image.height(); ++y)
            pixels.append(reinterpret_cast<const char *>(image.constScanLine(y)), std::size_t(image.width()));
        QPDFObjectHandle picture = QPDFObjectHandle::newStream(&pdf, pixels);
        picture.replaceDict(QPDFObjectHandle::parse("<< /Type /XObject /Subtype /Image /ColorSpace /DeviceGray "
                                                    "/BitsPerComponent 8 /Width "
            + std::to_string(image.width()) + " /Height " + std::to_string(image.height()) + " >>"));

        const QSizeF paper = page.turned % 180 == 0 ? page.size : page.size.transposed();
        QPDFObjectHandle pageObject = addPage(pdf, paper.width(), paper.height(), "<< /XObject << >> >>",
            "q " + number(paper.width()) + " 0 0 " + number(paper.height()) + " 0 0 cm /Scan Do Q");
        pageObject.getKey("/Resources").getKey("/XObject").replaceKey("/Scan", picture);
        if (page.rotateAttribute != 0)
            pageObject.replaceKey("/Rotate", QPDFObjectHandle::newInteger(page.rotateAttribute));
        if (const std::optional<QRectF> crop = page.cropBox)
            pageObject.replaceKey("/CropBox",
                QPDFObjectHandle::parse("[" + number(crop->left()) + ' ' + number(crop->top()) + ' '
                    + number(crop->right()) + ' ' + number(crop->bottom()) + "]"));
        for (int copy = 1; copy < copies; ++copy)
            QPDFPageDocumentHelper(pdf).addPage(QPDFPageObjectHelper(pageObject.shallowCopy()), false);
    }
}

} // namespace

QByteArray scanPdf(const std::vector<ScanPage> &pages, const std::optional<PdfPasswords> &passwords)
{
    return pdfOf([&](QPDF &pdf) { addScannedPages(pdf, pages, 1); }, passwords);
}

QByteArray repeatedScanPdf(const ScanPage &page, int count)
{
    return pdfOf([&](QPDF &pdf) { addScannedPages(pdf, { page }, count); });
}

QByteArray pdfWithoutPages()
{
    return pdfOf([](QPDF &) {});
}

QByteArray doublingFormFieldPdf(int levels)
{
    return pdfOf([&](QPDF &pdf) {
        QPDFObjectHandle page = addPage(pdf, 612, 792, "<< >>", "");
        QPDFObjectHandle field = pdf.makeIndirectObject(
            QPDFObjectHandle::parse("<< /FT /Tx /T (leaf) /Type /Annot /Subtype /Widget /Rect [72 72 144 96] >>"));
        field.replaceKey("/P", page);
        page.replaceKey("/Annots", QPDFObjectHandle::newArray({ field }));
        for (int level = 0; level < levels; ++level) {
            QPDFObjectHandle parent = pdf.makeIndirectObject(QPDFObjectHandle::parse("<< /T (level) >>"));
            parent.replaceKey("/Kids", QPDFObjectHandle::newArray({ field, field }));
            // A kid with a parent is a field of its own, not only a widget.
            field.replaceKey("/Parent", parent);
            field = parent;
        }
        pdf.getRoot().replaceKey(
            "/AcroForm", QPDFObjectHandle::newDictionary({ { "/Fields", QPDFObjectHandle::newArray({ field }) } }));
    });
}

void writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        throw std::runtime_error("can't write " + path.toStdString());
}
