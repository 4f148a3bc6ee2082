// Any organization answer, cleaned, keyed and matched against a few names on file.
#include "extract/Graphemes.h"
#include "extract/OrgMatching.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const std::vector<Organization> organizations = {
        { 1, QStringLiteral("Acme Water"), 0 },
        { 2, QStringLiteral("First National Bank"), 0 },
        { 3, QStringLiteral("PayPal"), 0 },
        { 4, QStringLiteral("Acme Tools"), 0 },
        { 5, QStringLiteral("Soci\u00E9t\u00E9 G\u00E9n\u00E9rale"), 0 },
    };
    static const OrgMatching::Aliases aliases = { { QStringLiteral("acme"), 1 } };
    const QString answer = QString::fromUtf8(reinterpret_cast<const char *>(data), qsizetype(size));
    OrgMatching::key(answer);
    OrgMatching::match(answer, organizations, aliases);
    OrgMatching::match(answer, organizations, {});
    // A cleaned name is never empty and never longer than 80 characters.
    if (const std::optional<QString> name = OrgMatching::clean(answer))
        if (name->isEmpty() || Graphemes::count(*name, 81) > 80)
            std::abort();
    return 0;
}
