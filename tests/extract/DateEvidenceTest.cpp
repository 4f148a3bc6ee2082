#include "extract/DateEvidence.h"

#include <QString>

#include <gtest/gtest.h>

#include <vector>

namespace {

struct Case {
    const char *iso;
    QString text;
    bool present;
};

TEST(DateEvidence, findsTheDateWrittenInAnyCommonWay)
{
    const std::vector<Case> cases {
        { "2024-09-05", QStringLiteral("Statement date: 9/5/2024"), true },
        { "2024-09-05", QStringLiteral("Due 09-05-24."), true },
        { "2024-09-05", QStringLiteral("Printed 2024/09/05"), true },
        { "2024-09-05", QStringLiteral("Sept 5 2024"), true },
        { "2024-09-05", QStringLiteral("SEP. 05, 2024"), true },
        { "2024-09-05", QStringLiteral("on 5 September,\n2024"), true },
        { "2024-09-05", QStringLiteral("September 5, 24"), true },
        { "2024-05-09", QStringLiteral("5.9.2024"), true },
        { "2024-02-31", QStringLiteral("2/31/2024"), true }, // the day is not checked
        { "+2024-09-05", QStringLiteral("9/5/2024"), true },
        // A digit on either side makes it part of another number.
        { "2024-01-05", QStringLiteral("11/5/2024"), false },
        { "2024-09-05",
            QStringLiteral("\u0663"
                           "9/5/2024"),
            false }, // an Arabic-Indic digit counts too
        { "2024-09-05", QStringLiteral("19/5/2024 then 9/5/2024"), true },
        { "2024-01-05", QStringLiteral("2024-01-051"), false },
        // White space between is a boundary: the line above may end in a postcode.
        { "2023-09-05", QStringLiteral("Portland, ME 04101\nSeptember 5, 2023"), true },
        { "2023-09-05", QStringLiteral("Due\t9/5/2023 \n 17 Main Street"), true },
        // Forms that are not evidence.
        { "2024-09-05", QStringLiteral("5.9.2024"), false }, // day first
        { "2024-09-05", QStringLiteral("2024/9/5"), false }, // year first is always padded
        { "2024-09-05", QStringLiteral("September 2024"), false },
        { "2024-09-05", QStringLiteral("Sept. 5, 2024"), false }, // "sept" has no form with a full stop
        // Inputs that are no date.
        { "2024-13-01", QStringLiteral("13/1/2024 2024-13-01"), false },
        { "", QStringLiteral("anything"), false },
        { "2024-09-05x", QStringLiteral("9/5/2024"), false },
    };
    for (const auto &c : cases)
        EXPECT_EQ(DateEvidence::appears(QString::fromUtf8(c.iso), c.text), c.present)
            << c.iso << " in " << c.text.toStdString();
}

// 9/5/20 is found at the start of 9/5/2020 and rejected; the search goes on to the full-year form.
TEST(DateEvidence, twoDigitYearInsideAFullYearIsRejectedButTheFullYearCounts)
{
    EXPECT_TRUE(DateEvidence::appears(QStringLiteral("2020-09-05"), QStringLiteral("9/5/2020")));
    EXPECT_FALSE(DateEvidence::appears(QStringLiteral("1920-09-05"), QStringLiteral("9/5/2020")));
}

} // namespace
