// Any organization answer, cleaned, keyed and matched against a few names on file.
#include "core/Graphemes.h"
#include "core/OrgMatching.h"

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
    static const OrgMatching::Aliases aliases = { { QStringLiteral("acme"), 1 }, { QStringLiteral("bank"), 6 } };
    const QString answer = QString::fromUtf8(reinterpret_cast<const char *>(data), qsizetype(size));

    // A key is words joined by single spaces.
    const QString key = OrgMatching::key(answer);
    if (key.startsWith(QLatin1Char(' ')) || key.endsWith(QLatin1Char(' ')) || key.contains(QStringLiteral("  ")))
        std::abort();

    // Only an organization on file or an alias is ever the answer, and an alias always wins.
    for (const auto &table : { aliases, OrgMatching::Aliases {} }) {
        const std::optional<std::int64_t> id = OrgMatching::match(answer, organizations, table);
        if (id && (*id < 1 || *id > 6 || (*id == 6 && table.isEmpty())))
            std::abort();
        if (key.isEmpty() && id)
            std::abort();
    }
    if (!key.isEmpty() && OrgMatching::match(answer, organizations, { { key, 42 } }) != 42)
        std::abort();

    // A cleaned name is never empty and never longer than 80 characters.
    if (const std::optional<QString> name = OrgMatching::clean(answer))
        if (name->isEmpty() || Graphemes::count(*name, 81) > 80)
            std::abort();
    return 0;
}
