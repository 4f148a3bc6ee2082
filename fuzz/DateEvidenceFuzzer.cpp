// Any page text, searched for a date taken from the input's first line (the model's date answer).
#include "extract/DateEvidence.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QString input = QString::fromUtf8(reinterpret_cast<const char *>(data), qsizetype(size));
    const qsizetype lineEnd = input.indexOf(QLatin1Char('\n'));
    const QString iso = lineEnd < 0 ? input : input.left(lineEnd);
    const QString page = lineEnd < 0 ? QString() : input.mid(lineEnd + 1);

    DateEvidence::appears(iso, page);
    // Every form written alone on a page is found there (the answer itself only when it is written in
    // lower case without blanks, as the squeezed page is).
    const QStringList forms = DateEvidence::forms(iso);
    for (const QString &form : forms) {
        if (form.isEmpty())
            std::abort();
        const bool squeezed = std::none_of(form.cbegin(), form.cend(), [](QChar c) { return c.isSpace(); });
        if (form == form.toLower() && squeezed
            && !DateEvidence::appears(iso, QStringLiteral("On ") + form + QStringLiteral(".")))
            std::abort();
    }
    if (!forms.isEmpty() && forms.size() < 26)
        std::abort();
    return 0;
}
