#include "extract/Instructions.h"

#include "extract/PageFacts.h"
#include "support/Printing.h"

#include <gtest/gtest.h>

using namespace Extractor;

TEST(PageFactsSchema, decode_rejectsAnswersOfTheWrongTypesOrIncomplete)
{
    const QByteArray rejected[] = {
        R"({"firstPage":"true","kind":"Utility bill","organization":"","dateLabel":"","date":""})",
        R"({"firstPage":false,"kind":"utility bill","organization":"","dateLabel":"","date":""})",
        R"({"firstPage":false,"kind":"Bill","organization":null,"dateLabel":"","date":""})",
        "{\"firstPage\":false,\"kind\":\"Bill\"",
    };
    for (const QByteArray &json : rejected)
        EXPECT_FALSE(PageFacts::decode(json)) << json.toStdString();
}

TEST(PagesToRead, pagesWithFewerThanFortyCharactersBesidesWhiteSpaceAreSkipped)
{
    // 39 characters besides white space of any kind, and 40.
    const QString spread39 = QStringLiteral("ab \n\t").repeated(19) + u"c\u3000 \u00A0";
    EXPECT_EQ(pagesToRead({ QString(), spread39 + u"d", spread39, QStringLiteral("e\u0301").repeated(39) }),
        std::vector<int>({ 1 }));
}
