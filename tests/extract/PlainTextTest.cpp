#include "extract/PlainText.h"

#include "support/Printing.h"

#include <gtest/gtest.h>

using namespace Extractor;

namespace {
std::optional<QString> text(const char16_t *value)
{
    return QString::fromUtf16(value);
}
} // namespace

TEST(ParsePlainText, labelledOrBareAnswers)
{
    struct Case {
        QString reply;
        std::optional<PlainAnswer> expected;
    };
    const Case cases[] = {
        { QStringLiteral("First page: no\nType: Invoice\nOrganization: none\nDate label: none\nDate: none"),
            PlainAnswer { false, text(u"Invoice"), std::nullopt, std::nullopt, std::nullopt } },
        { QString::fromUtf16(u"Sure, here it is.\r\n\r\n**First page:** Yes\n**Type:** Utility bill\n"
                             u"- **Organization**: \"Acme Water\"\n\u2022 Date label: \u201CStatement Date\u201D\n"
                             u"* Date *: March 12, 2024\n"),
            PlainAnswer {
                true, text(u"Utility bill"), text(u"Acme Water"), text(u"Statement Date"), text(u"2024-03-12") } },
        // "Date" never takes the "Date label" line, whichever comes first.
        { QStringLiteral("organization: Acme\nDATE LABEL: Due\ndate: 2024-01-02\nfirst page: y"),
            PlainAnswer { true, std::nullopt, text(u"Acme"), text(u"Due"), text(u"2024-01-02") } },
        { QStringLiteral("Organization:\nType: N/A\nFirst page: no, yes\nDate: 2024-13-01"), PlainAnswer {} },
        // A label without its colon is not the field; the first line that has one is.
        { QStringLiteral("Organization Acme\nOrganization ** : Bolt\nOrganization: Cord"),
            PlainAnswer { false, std::nullopt, text(u"Bolt"), std::nullopt, std::nullopt } },
        // Bare answers: the lines in order, those not given left out.
        { QStringLiteral("yes\nAcme Water\n2024-03-12"),
            PlainAnswer { true, std::nullopt, text(u"Acme Water"), std::nullopt, text(u"2024-03-12") } },
        // Neither a type nor a date: no answer.
        { QStringLiteral("yes\nAcme Water\nStatement Date"), std::nullopt },
        // Too many lines left between the type and the date.
        { QStringLiteral("yes\nInvoice\nAcme\nLabel\nExtra\n2024-03-12"), std::nullopt },
        // An organization of 120 characters, of two units each; one more is too long.
        { u"Bill\n" + QStringLiteral("e\u0301").repeated(120) + u"\nnone",
            PlainAnswer { false, text(u"Bill"), QStringLiteral("e\u0301").repeated(120), std::nullopt, std::nullopt } },
        { u"yes\n" + QString(121, u'x') + u"\n2024-03-12", std::nullopt },
    };
    for (const Case &c : cases)
        EXPECT_EQ(parsePlainText(c.reply), c.expected) << c.reply.toStdString();
}

// Of the forms a date may take, the first that matches is read, and only real dates not far ahead count.
TEST(NormalizeDate, firstFormThatMatchesAndRealDatesFrom1900ToFourHundredDaysAhead)
{
    const QDateTime now(QDate(2024, 6, 1), QTime(12, 0), Qt::UTC);
    EXPECT_EQ(normalizeDate(QStringLiteral("Due 3/4/2024, statement 2024-3-05"), now), QStringLiteral("2024-03-05"));
    EXPECT_EQ(normalizeDate(QStringLiteral("STATEMENT DATE Sept. 9,\n2023"), now), QStringLiteral("2023-09-09"));
    EXPECT_EQ(normalizeDate(QStringLiteral("remember 5, 2024 or 5 May 2024"), now), std::nullopt);
    EXPECT_EQ(normalizeDate(QStringLiteral("1899-12-31"), now), std::nullopt);
    EXPECT_EQ(normalizeDate(QStringLiteral("2025-07-01"), now), QStringLiteral("2025-07-01"));
    EXPECT_EQ(normalizeDate(QStringLiteral("2025-07-20"), now), std::nullopt);
}
