#include "ocr/TextRecognizer.h"

#include "core/Cancellation.h"
#include "ocr/OCR.h"
#include "ocr/OcrLanguages.h"

#include <QFile>
#include <QTransform>

#include <tesseract/baseapi.h>
#include <tesseract/ocrclass.h>
#include <tesseract/resultiterator.h>

namespace {

bool stopRequested(void *stop, int)
{
    return static_cast<const std::stop_token *>(stop)->stop_requested();
}

int turnOf(int dx, int dy)
{
    if (std::abs(dy) <= std::abs(dx))
        return dx >= 0 ? 0 : 180;
    return dy > 0 ? 90 : 270;
}

} // namespace

TextRecognizer::TextRecognizer(const QString &languages)
    : languages_(languages)
    , api_(std::make_unique<tesseract::TessBaseAPI>())
{
    if (const std::optional<QString> problem = OcrLanguages::problem(languages))
        throw OCR::Failure(*problem);
    api_->SetVariable("debug_file", "/dev/null");
    if (api_->Init(QFile::encodeName(OcrLanguages::dataFolder()).constData(), languages.toUtf8().constData(),
            tesseract::OEM_LSTM_ONLY)
        != 0)
        throw OCR::Failure(QStringLiteral("Text recognition in “") + languages + QStringLiteral("” couldn't start"));
    api_->SetPageSegMode(tesseract::PSM_AUTO);
}

TextRecognizer::~TextRecognizer()
{
    api_->End();
}

OCR::Reading TextRecognizer::reading(const QImage &bitmap, int rotation, const std::stop_token &stop)
{
    QImage oriented
        = bitmap.format() == QImage::Format_Grayscale8 ? bitmap : bitmap.convertToFormat(QImage::Format_Grayscale8);
    if (rotation % 360 != 0)
        oriented = oriented.transformed(QTransform().rotate(rotation));
    const int width = oriented.width();
    const int height = oriented.height();
    if (width <= 0 || height <= 0)
        return OCR::Reading(rotation, {});

    api_->SetImage(oriented.constBits(), width, height, 1, int(oriented.bytesPerLine()));
    const int dotsPerInch = qRound(oriented.dotsPerMeterX() * 0.0254);
    if (dotsPerInch >= 70)
        api_->SetSourceResolution(dotsPerInch);
    tesseract::ETEXT_DESC monitor;
    monitor.cancel = stopRequested;
    monitor.cancel_this = const_cast<std::stop_token *>(&stop);
    const int status = api_->Recognize(&monitor);
    if (status != 0 || stop.stop_requested()) {
        api_->Clear();
        throwIfCancelled(stop);
        throw OCR::Failure(QStringLiteral("Text recognition failed"));
    }

    std::vector<OCR::Line> lines;
    std::unique_ptr<tesseract::ResultIterator> line(api_->GetIterator());
    if (line) {
        do {
            if (line->Empty(tesseract::RIL_TEXTLINE))
                continue;
            const std::unique_ptr<char[]> utf8(line->GetUTF8Text(tesseract::RIL_TEXTLINE));
            const QString text = utf8 ? QString::fromUtf8(utf8.get()).trimmed() : QString();
            int left = 0, top = 0, right = 0, bottom = 0;
            if (text.isEmpty() || !line->BoundingBox(tesseract::RIL_TEXTLINE, &left, &top, &right, &bottom))
                continue;
            int x1 = left, y1 = bottom, x2 = right, y2 = bottom;
            line->Baseline(tesseract::RIL_TEXTLINE, &x1, &y1, &x2, &y2);
            // Pixel rows grow downwards; the line's frame grows upwards.
            const QRectF box(double(left) / width, 1.0 - double(bottom) / height, double(right - left) / width,
                double(bottom - top) / height);
            lines.push_back({ text, box, turnOf(x2 - x1, y1 - y2) });
        } while (line->Next(tesseract::RIL_TEXTLINE));
    }
    api_->Clear();
    return OCR::Reading(rotation, std::move(lines));
}
