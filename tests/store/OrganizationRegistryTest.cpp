#include "support/Printing.h"
#include "support/StoreFixture.h"

using namespace Qt::StringLiterals;

using Ids = std::vector<std::int64_t>;

namespace {

class OrganizationRegistry : public StoreFixture {
protected:
    std::int64_t organization(const QString &name, bool namedByUser = false)
    {
        const auto id = CatalogueFixtures::insertOrganization(db, name);
        db.run(u"UPDATE organizations SET named_by_user = ? WHERE id = ?"_s, { namedByUser, id });
        return id;
    }
    // A scan filed under `organization` because the model answered `answer`.
    std::int64_t modelFiled(
        const QString &path, std::int64_t organization, const QString &answer, const QString &status = u"done"_s)
    {
        const auto id
            = add({ .path = path, .ocrStatus = u"done"_s, .extractStatus = status, .organizationID = organization });
        db.run(u"UPDATE documents SET model_organization = ? WHERE id = ?"_s, { answer, id });
        return id;
    }
    // A scan the model files now, having answered `organization`.
    std::int64_t modelAnswers(const QString &path, const QString &organization)
    {
        const auto id = add({ .path = path, .ocrStatus = u"done"_s, .extractStatus = u"pending"_s });
        store->saveExtraction(id, organization, std::nullopt, std::nullopt, std::nullopt, std::nullopt, std::nullopt);
        return id;
    }
    std::optional<std::int64_t> organizationOf(std::int64_t id)
    {
        const auto text = column(id, u"organization_id"_s);
        return text ? std::optional(text->toLongLong()) : std::nullopt;
    }
    std::optional<QString> names()
    {
        return value(u"SELECT group_concat(name, '|') FROM (SELECT name FROM organizations ORDER BY name)"_s);
    }
    // Learned names as "key=organization", by key.
    std::optional<QString> aliases()
    {
        return value(u"SELECT group_concat(alias_key || '=' || organization_id, ', ') FROM (SELECT * FROM "
                     "organization_aliases ORDER BY alias_key)"_s);
    }
    std::optional<QString> namedByUser(std::int64_t id)
    {
        return value(u"SELECT named_by_user FROM organizations WHERE id = %1"_s.arg(id));
    }
    std::optional<QString> extractStatus(std::int64_t id) { return column(id, u"extract_status"_s); }
};

// Filing, renaming, merging and deleting are tested through the Library and the command line; these
// are the registry's own edges.

// The user's exact choice wins over a loose match; only the model's filings it overrules are learned.
TEST_F(OrganizationRegistry, setOrganization_learnsOnlyFromModelFilingsItOverrules)
{
    const auto target = organization(u"Target"_s);
    modelFiled(u"t.pdf"_s, target, u"Target"_s);
    const auto acme = organization(u"Acme Corporation"_s);
    const Ids overruled { modelFiled(u"1.pdf"_s, acme, u"ACME Corp"_s), modelFiled(u"2.pdf"_s, acme, u"Acme Corp."_s) };
    // Filed by hand before: the answer was already overruled once and is not the model's filing.
    const auto gamma = organization(u"Gamma"_s);
    const auto byHand = modelFiled(u"g.pdf"_s, gamma, u"Gamma Answer"_s, u"manual"_s);
    // Already filed under the target: nothing is overruled.
    const auto already = modelFiled(u"z.pdf"_s, target, u"Zeta Answer"_s);
    // The answer is the name of an organization that still files another scan.
    const auto epsilon = organization(u"Epsilon Energy"_s);
    const auto fromEpsilon = modelFiled(u"e1.pdf"_s, epsilon, u"EPSILON ENERGY INC"_s);
    modelFiled(u"e2.pdf"_s, epsilon, u"Epsilon Energy"_s);
    // Waiting for the model to file it again: what it answered before is no filing now.
    const auto waiting = modelFiled(u"w.pdf"_s, gamma, u"Omega"_s, u"pending"_s);

    store->setOrganization({ overruled[0], overruled[1], byHand, already, fromEpsilon, waiting }, u"target"_s);
    EXPECT_EQ(aliases(), u"acme=%1"_s.arg(target));
    EXPECT_EQ(names(), u"Epsilon Energy|Target"_s);
    EXPECT_EQ(extractStatus(waiting), u"manual"_s);
    EXPECT_TRUE(search(u"organization:acme"_s).empty());
    // The model's next answer of the same kind lands there without help.
    EXPECT_EQ(organizationOf(modelAnswers(u"next.pdf"_s, u"ACME Corp"_s)), target);

    // "Epsilon" would match "Epsilon Energy" loosely, yet a new organization named by the user is made.
    store->setOrganization({ already }, u"  \"Epsilon, Inc.\" "_s);
    EXPECT_EQ(names(), u"Epsilon|Epsilon Energy|Target"_s);
    EXPECT_EQ(namedByUser(organizationOf(already).value_or(0)), u"1"_s);
}

// A shorter name of an organization the model named becomes its name; one the user named or renamed
// keeps its name. Either way the answer is remembered, and a longer answer never renames.
TEST_F(OrganizationRegistry, saveExtraction_matchingAnswerLandsOnTheOrganizationAndMayShortenItsName)
{
    const auto acme = organization(u"Acme Bank Online Services"_s);
    const auto earlier = modelFiled(u"a.pdf"_s, acme, u"Acme Bank Online Services"_s);
    const auto beta = organization(u"Beta Energy Services"_s, true);
    modelFiled(u"b.pdf"_s, beta, u"Beta Energy Services"_s);

    const auto shorter = modelAnswers(u"a2.pdf"_s, u"ACME BANK"_s);
    EXPECT_EQ(organizationOf(modelAnswers(u"b2.pdf"_s, u"Beta Energy"_s)), beta);
    EXPECT_EQ(organizationOf(shorter), acme);
    EXPECT_EQ(names(), u"Acme Bank|Beta Energy Services"_s);
    EXPECT_EQ(namedByUser(acme), u"0"_s);
    EXPECT_EQ(aliases(), u"acme bank=%1, acme bank online services=%1, beta energy=%2"_s.arg(acme).arg(beta));
    EXPECT_EQ(search(u"organization:\"acme bank\""_s), (Ids { earlier, shorter }));
    EXPECT_EQ(organizationOf(modelAnswers(u"a3.pdf"_s, u"Acme Bank Mortgage Dept"_s)), acme);

    store->renameOrganization(acme, u"Acme Bank Group"_s);
    EXPECT_EQ(organizationOf(modelAnswers(u"a4.pdf"_s, u"ACME"_s)), acme);
    EXPECT_EQ(names(), u"Acme Bank Group|Beta Energy Services"_s);
}

TEST_F(OrganizationRegistry, merge_movesScansAndAliasesOfEverySourceAllOrNothing)
{
    const auto target = organization(u"Target"_s);
    const auto t = modelFiled(u"t.pdf"_s, target, u"Target"_s);
    const auto one = organization(u"One"_s);
    const auto o = modelFiled(u"o.pdf"_s, one, u"One"_s);
    const auto two = organization(u"Two"_s);
    const auto w = modelFiled(u"w.pdf"_s, two, u"Two"_s, u"manual"_s);
    db.run(u"INSERT INTO organization_aliases VALUES ('deux', ?)"_s, { two });

    // No organization 999: with the first source's scans set aside, moving the second's there breaks
    // the foreign key half way.
    db.run(u"UPDATE documents SET organization_id = NULL WHERE id = ?"_s, { o });
    EXPECT_THROW(store->merge({ one, two }, 999), Database::Error);
    EXPECT_EQ(names(), u"One|Target|Two"_s);
    EXPECT_EQ(organizationOf(w), two);
    EXPECT_EQ(aliases(), u"deux=%1"_s.arg(two));

    db.run(u"UPDATE documents SET organization_id = ? WHERE id = ?"_s, { one, o });
    store->merge({ one, target, two }, target);
    EXPECT_EQ(names(), u"Target"_s);
    EXPECT_EQ(aliases(), u"deux=%1, one=%1, two=%1"_s.arg(target));
    EXPECT_EQ(search(u"organization:target"_s), (Ids { t, o, w }));
    EXPECT_EQ(extractStatus(w), u"manual"_s);
}

} // namespace
