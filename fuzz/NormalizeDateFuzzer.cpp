// Any text as a date answer.
#include "core/DocDate.h"
#include "extract/PlainText.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const QDateTime now(QDate(2024, 6, 1), QTime(12, 0), Qt::UTC);
    const QString text = QString::fromUtf8(reinterpret_cast<const char *>(data), qsizetype(size));
    Extractor::dateParts(text, 2024);
    const std::optional<QString> date = Extractor::normalizeDate(text, now);
    // What comes out is a real date in the catalogue's form, and reads back as itself.
    if (date && (!DocDate::parse(*date).isValid() || Extractor::normalizeDate(*date, now) != date))
        std::abort();
    return 0;
}
