// Any reply of the model, read as the plain-text answer.
#include "core/DocDate.h"
#include "extract/PlainText.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QString reply = QString::fromUtf8(reinterpret_cast<const char *>(data), qsizetype(size));
    const std::optional<Extractor::PlainAnswer> answer = Extractor::parsePlainText(reply);
    // A date that comes out is always a real date in the catalogue's form.
    if (answer && answer->date && !DocDate::parse(*answer->date).isValid())
        std::abort();
    return 0;
}
