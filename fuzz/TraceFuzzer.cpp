// Any stored transcript text, as if edited by hand; its page answers then go through consensus.
#include "extract/Consensus.h"
#include "extract/Trace.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArray json(reinterpret_cast<const char *>(data), qsizetype(size));
    const std::optional<Extractor::Trace> trace = Extractor::Trace::decode(json);
    if (!trace)
        return 0;
    trace->summary();
    trace->fullText(QLocale::c());
    if (Consensus::decide(trace->pages).notes.isEmpty())
        std::abort();
    // A transcript that was read can be written and read again.
    const std::optional<QByteArray> again = trace->encode();
    if (!again || !Extractor::Trace::decode(*again))
        std::abort();
    return 0;
}
