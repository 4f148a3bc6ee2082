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
        { "2024-09-05", QStringLiteral("9.05.2024"), true },
        { "2024-09-05", QStringLiteral("Statement 2024-09-05"), true },
        { "2024-09-05", QStringLiteral("Printed 2024/09/05"), true },
        { "2024-09-05", QStringLiteral("Sept 5 2024"), true },
        { "2024-09-05", QStringLiteral("SEP. 05, 2024"), true },
        { "2024-09-05", QStringLiteral("5 sep 2024"), true },
        { "2024-09-05", QStringLiteral("on 5 September,\n2024"), true },
        { "2024-09-05", QStringLiteral("September 5, 24"), true },
        { "2024-09-05", QStringLiteral("invoice9/5/2024total"), true },
        { "2024-05-01", QStringLiteral("May 1, 2024"), true },
        { "2024-05-09", QStringLiteral("5.9.2024"), true },
        { "2024-11-05", QStringLiteral("11/5/2024"), true },
        { "2020-09-05", QStringLiteral("9/5/2020"), true },
        { "2024-02-31", QStringLiteral("2/31/2024"), true }, // the day is not checked
        { "+2024-09-05", QStringLiteral("9/5/2024"), true },
        // A digit on either side makes it part of another number.
        { "2024-01-05", QStringLiteral("11/5/2024"), false },
        { "2024-09-05", QStringLiteral("9/5/20245"), false },
        { "2024-09-05", QStringLiteral("Account 19/5/2024"), false },
        { "2024-09-05",
            QStringLiteral("\u0663"
                           "9/5/2024"),
            false }, // an Arabic-Indic digit counts too
        { "2024-09-05", QStringLiteral("Ref 9/5/2024 and 9/5/2024"), true },
        { "2024-09-05", QStringLiteral("19/5/2024 then 9/5/2024"), true },
        // Forms that are not evidence.
        { "2024-09-05", QStringLiteral("5.9.2024"), false }, // day first
        { "2024-09-05", QStringLiteral("2024/9/5"), false }, // year first is always padded
        { "2024-09-05", QStringLiteral("September 2024"), false },
        { "2024-09-05", QStringLiteral("Sept. 5, 2024"), false }, // "sept" has no form with a full stop
        { "2024-09-05", QString(), false },
        // Inputs that are no date.
        { "2024-13-01", QStringLiteral("13/1/2024 2024-13-01"), false },
        { "2024-09", QStringLiteral("2024-09"), false },
        { "", QStringLiteral("anything"), false },
        { "abcd-ef-gh", QStringLiteral("abcd-ef-gh"), false },
        { "2024-09-05x", QStringLiteral("9/5/2024"), false },
        { "2024- 09-05", QStringLiteral("9/5/2024"), false },
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

TEST(DateEvidence, formsAreLowerCaseWithoutBlanksAndIncludeEveryKind)
{
    const QStringList forms = DateEvidence::forms(QStringLiteral("2024-09-05"));
    for (const char *form : { "9/5/2024", "09-05-24", "9.05.2024", "09/5/24", "2024-09-05", "2024/09/05",
             "september5,2024", "sep.05,24", "5sept2024", "05sep,2024", "sept52024" })
        EXPECT_TRUE(forms.contains(QString::fromUtf8(form))) << form;
    for (const char *form : { "5/9/2024", "2024/9/5", "sep5,2024x", "5.9.2024" })
        EXPECT_FALSE(forms.contains(QString::fromUtf8(form))) << form;
    for (const QString &form : forms)
        EXPECT_EQ(form, form.toLower().simplified().remove(QLatin1Char(' '))) << form.toStdString();

    // May has one name set of two, no "sept"-like fourth entry.
    const QStringList may = DateEvidence::forms(QStringLiteral("2024-05-01"));
    EXPECT_TRUE(may.contains(QStringLiteral("may1,2024")));
    EXPECT_TRUE(may.contains(QStringLiteral("may.01,24")));
    EXPECT_FALSE(may.contains(QStringLiteral("may.1may2024")));

    for (const char *invalid : { "2024-13-01", "2024-00-10", "2024-09", "", "abcd-ef-gh", "2024-09-05-01" })
        EXPECT_TRUE(DateEvidence::forms(QString::fromUtf8(invalid)).isEmpty()) << invalid;
}

} // namespace
