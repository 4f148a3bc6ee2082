#include "extract/DateEvidence.h"

#include <QString>

#include <gtest/gtest.h>

namespace {

TEST(DateEvidence, findsTheDateWrittenInAnyCommonWayButNotInsideAnotherNumber)
{
    const struct {
        const char *iso;
        QString text;
        bool present;
    } cases[] = {
        { "2024-09-05", QStringLiteral("Due 09-05-24."), true },
        { "2024-09-05", QStringLiteral("on 5 September,\n2024"), true },
        { "2024-05-09", QStringLiteral("5.9.2024"), true },
        // A digit on either side makes it part of another number, an Arabic-Indic digit too.
        { "2024-01-05", QStringLiteral("11/5/2024"), false },
        { "2024-09-05",
            QStringLiteral("\u0663"
                           "9/5/2024"),
            false },
        { "2024-09-05", QStringLiteral("19/5/2024 then 9/5/2024"), true },
        // 9/5/20 is found at the start of 9/5/2020 and rejected; the full year still counts.
        { "1920-09-05", QStringLiteral("9/5/2020"), false },
        { "2020-09-05", QStringLiteral("9/5/2020"), true },
        // White space between is a boundary: the line above may end in a postcode.
        { "2023-09-05", QStringLiteral("Portland, ME 04101\nSeptember 5, 2023"), true },
        { "2024-13-01", QStringLiteral("13/1/2024 2024-13-01"), false },
    };
    for (const auto &c : cases)
        EXPECT_EQ(DateEvidence::appears(QString::fromUtf8(c.iso), c.text), c.present)
            << c.iso << " in " << c.text.toStdString();
}

} // namespace
