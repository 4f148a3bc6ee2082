#include "support/Printing.h"
#include "support/StoreFixture.h"

#include <QMap>

using namespace Qt::StringLiterals;

using Ids = std::vector<std::int64_t>;
using Aliases = QMap<QString, std::int64_t>;

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
    std::int64_t waitingForModel(const QString &path)
    {
        return add({ .path = path, .ocrStatus = u"done"_s, .extractStatus = u"pending"_s });
    }
    // A scan the model files now, having answered `organization`.
    std::int64_t modelAnswers(const QString &path, const QString &organization)
    {
        const auto id = waitingForModel(path);
        store->saveExtraction(id, organization, std::nullopt, std::nullopt, std::nullopt, std::nullopt, std::nullopt);
        return id;
    }
    std::optional<std::int64_t> organizationOf(std::int64_t id)
    {
        const auto text = column(id, u"organization_id"_s);
        return text ? std::optional(text->toLongLong()) : std::nullopt;
    }
    QStringList names()
    {
        QStringList result;
        for (const auto &org : store->organizations())
            result.append(org.name);
        return result;
    }
    Aliases aliases()
    {
        Statement statement = db.prepare(u"SELECT alias_key, organization_id FROM organization_aliases"_s);
        statement.bind({});
        Aliases result;
        while (statement.step())
            result.insert(statement.text(0), statement.int64(1));
        return result;
    }
    std::optional<QString> namedByUser(std::int64_t organization)
    {
        return value(u"SELECT named_by_user FROM organizations WHERE id = %1"_s.arg(organization));
    }
    std::optional<QString> extractStatus(std::int64_t id) { return column(id, u"extract_status"_s); }
};

// ---- Filing by hand ----

// An existing name in any case files there; otherwise the cleaned name is created, user-named, even when
// an organization matches it loosely: the user's exact choice wins.
TEST_F(OrganizationRegistry, setOrganization_existingNameInAnyCaseOrANewOne)
{
    const auto beta = organization(u"Beta Bank"_s);
    modelFiled(u"b.pdf"_s, beta, u"Beta Bank"_s);
    const auto widgets = organization(u"Acme Widgets"_s);
    modelFiled(u"w.pdf"_s, widgets, u"Acme Widgets"_s);
    const auto first = waitingForModel(u"1.pdf"_s);
    const auto second = waitingForModel(u"2.pdf"_s);
    db.run(u"UPDATE documents SET error = 'model busy' WHERE id = ?"_s, { first });

    store->setOrganization({ first }, u"beta bank"_s);
    store->setOrganization({ second }, u"  \"Acme, Inc.\" "_s);

    EXPECT_EQ(organizationOf(first), beta);
    EXPECT_EQ(extractStatus(first), u"manual"_s);
    EXPECT_FALSE(column(first, u"error"_s));
    EXPECT_EQ(search(u"organization:beta"_s), Ids { first });
    const auto created = organizationOf(second).value_or(widgets);
    EXPECT_NE(created, widgets);
    EXPECT_EQ(names(), (QStringList { u"Acme"_s, u"Acme Widgets"_s, u"Beta Bank"_s }));
    EXPECT_EQ(namedByUser(created), u"1"_s);
    EXPECT_TRUE(aliases().isEmpty());
}

TEST_F(OrganizationRegistry, setOrganization_overruledModelAnswersBecomeAnAliasOfTheTarget)
{
    const auto a = organization(u"Acme Corporation"_s);
    const Ids moved { modelFiled(u"1.pdf"_s, a, u"ACME Corp"_s), modelFiled(u"2.pdf"_s, a, u"Acme Corporation"_s),
        modelFiled(u"3.pdf"_s, a, u"ACME Corp"_s) };
    const auto b = organization(u"Beta Holdings"_s, true);
    modelFiled(u"b.pdf"_s, b, u"Beta Holdings"_s);

    store->setOrganization(moved, u"Beta Holdings"_s);

    EXPECT_EQ(names(), QStringList { u"Beta Holdings"_s }); // A filed nothing any more
    EXPECT_EQ(aliases(), (Aliases { { u"acme"_s, b } }));
    EXPECT_EQ(search(u"organization:beta"_s), moved);
    EXPECT_TRUE(search(u"organization:acme"_s).empty());
    // The model's next answer of the same kind lands there without help.
    EXPECT_EQ(organizationOf(modelAnswers(u"next.pdf"_s, u"Acme Corp."_s)), b);
    EXPECT_EQ(names(), QStringList { u"Beta Holdings"_s });
}

TEST_F(OrganizationRegistry, setOrganization_learnsOnlyFromModelFilingsItOverrules)
{
    const auto target = organization(u"Target"_s);
    modelFiled(u"t.pdf"_s, target, u"Target"_s);
    // Filed by hand before: the answer was already overruled once and is not the model's filing.
    const auto gamma = organization(u"Gamma"_s);
    const auto byHand = modelFiled(u"g.pdf"_s, gamma, u"Gamma Answer"_s, u"manual"_s);
    // Already filed under the target: nothing is overruled.
    const auto already = modelFiled(u"z.pdf"_s, target, u"Zeta Answer"_s);
    // The answer is the name of an organization that still files another scan.
    const auto epsilon = organization(u"Epsilon Energy"_s);
    const auto fromEpsilon = modelFiled(u"e1.pdf"_s, epsilon, u"EPSILON ENERGY INC"_s);
    modelFiled(u"e2.pdf"_s, epsilon, u"Epsilon Energy"_s);
    // Waiting for the model: it filed nothing yet.
    const auto waiting = waitingForModel(u"w.pdf"_s);
    db.run(u"UPDATE documents SET model_organization = 'Omega' WHERE id = ?"_s, { waiting });

    store->setOrganization({ byHand, already, fromEpsilon, waiting }, u"Target"_s);

    EXPECT_TRUE(aliases().isEmpty());
    EXPECT_EQ(names(), (QStringList { u"Epsilon Energy"_s, u"Target"_s }));
    EXPECT_FALSE(namedByUser(gamma)); // left without scans
}

TEST_F(OrganizationRegistry, setOrganization_withoutAName_clearsAndLearnsNothing)
{
    const auto delta = organization(u"Delta"_s);
    const std::optional<QString> noNames[] = { std::nullopt, u"N/A"_s, u" ... "_s };
    for (const auto &name : noNames) {
        const auto id = modelFiled(name.value_or(u"none"_s), delta, u"Delta"_s);
        store->setOrganization({ id }, name);
        EXPECT_FALSE(organizationOf(id));
        EXPECT_EQ(extractStatus(id), u"manual"_s);
    }
    EXPECT_TRUE(names().isEmpty());
    EXPECT_TRUE(aliases().isEmpty());
    EXPECT_TRUE(search(u"organization:delta"_s).empty());
}

// ---- Filing the model's answers ----

// A shorter name of an organization the model named becomes its name; one the user named keeps its
// name. Either way the answer is remembered, and a longer answer never renames.
TEST_F(OrganizationRegistry, saveExtraction_matchingAnswerLandsOnTheOrganizationAndMayShortenItsName)
{
    const auto acme = organization(u"Acme Bank Online Services"_s);
    const auto earlier = modelFiled(u"a.pdf"_s, acme, u"Acme Bank Online Services"_s);
    const auto beta = organization(u"Beta Energy Services"_s, true);
    modelFiled(u"b.pdf"_s, beta, u"Beta Energy Services"_s);

    const auto shorter = modelAnswers(u"a2.pdf"_s, u"ACME BANK"_s);
    EXPECT_EQ(organizationOf(modelAnswers(u"b2.pdf"_s, u"Beta Energy"_s)), beta);
    EXPECT_EQ(organizationOf(shorter), acme);
    EXPECT_EQ(names(), (QStringList { u"Acme Bank"_s, u"Beta Energy Services"_s }));
    EXPECT_EQ(namedByUser(acme), u"0"_s);
    EXPECT_EQ(aliases(),
        (Aliases { { u"acme bank"_s, acme }, { u"acme bank online services"_s, acme }, { u"beta energy"_s, beta } }));
    EXPECT_EQ(search(u"organization:\"acme bank\""_s), (Ids { earlier, shorter }));
    EXPECT_TRUE(search(u"organization:online"_s).empty());

    EXPECT_EQ(organizationOf(modelAnswers(u"a3.pdf"_s, u"Acme Bank Online Services"_s)), acme);
    EXPECT_EQ(organizationOf(modelAnswers(u"a4.pdf"_s, u"Acme Bank Mortgage Dept"_s)), acme);
    EXPECT_EQ(names(), (QStringList { u"Acme Bank"_s, u"Beta Energy Services"_s }));
}

TEST_F(OrganizationRegistry, saveExtraction_unknownOrAmbiguousAnswerCreatesAnAutoNamedOrganization)
{
    modelFiled(u"t.pdf"_s, organization(u"Acme Tools"_s), u"Acme Tools"_s);
    modelFiled(u"w.pdf"_s, organization(u"Acme Widgets"_s), u"Acme Widgets"_s);

    const auto ambiguous = modelAnswers(u"a.pdf"_s, u"Acme"_s);
    const auto unknown = modelAnswers(u"u.pdf"_s, u"Zenith Water Authority, Inc."_s);
    const auto none = modelAnswers(u"n.pdf"_s, u"Unknown"_s);

    EXPECT_EQ(names(), (QStringList { u"Acme"_s, u"Acme Tools"_s, u"Acme Widgets"_s, u"Zenith Water Authority"_s }));
    for (const auto id : { ambiguous, unknown })
        EXPECT_EQ(namedByUser(organizationOf(id).value_or(0)), u"0"_s);
    EXPECT_FALSE(organizationOf(none));
    EXPECT_EQ(column(none, u"model_organization"_s), u"Unknown"_s);
    EXPECT_TRUE(aliases().isEmpty());
}

// ---- Rename, merge, delete ----

TEST_F(OrganizationRegistry, renameOrganization_becomesUserNamedAndTheOldNameAnAlias)
{
    const auto acme = organization(u"Acme"_s);
    const auto scan = modelFiled(u"a.pdf"_s, acme, u"Acme"_s);

    store->renameOrganization(acme, u"Acme Industries"_s);

    EXPECT_EQ(names(), QStringList { u"Acme Industries"_s });
    EXPECT_EQ(aliases(), (Aliases { { u"acme"_s, acme } }));
    EXPECT_EQ(search(u"organization:industries"_s), Ids { scan });
    // A later shorter answer no longer renames it.
    EXPECT_EQ(organizationOf(modelAnswers(u"b.pdf"_s, u"ACME"_s)), acme);
    EXPECT_EQ(names(), QStringList { u"Acme Industries"_s });
}

TEST_F(OrganizationRegistry, renameOrganization_toAnotherOrganizationsName_mergesIntoIt)
{
    const auto acme = organization(u"Acme"_s);
    const auto done = modelFiled(u"a1.pdf"_s, acme, u"Acme"_s);
    const auto manual = modelFiled(u"a2.pdf"_s, acme, u"Acme"_s, u"manual"_s);
    db.run(u"INSERT INTO organization_aliases VALUES ('acme corp holdings', ?)"_s, { acme });
    const auto beta = organization(u"Beta"_s);
    const auto b = modelFiled(u"b.pdf"_s, beta, u"Beta"_s);

    store->renameOrganization(acme, u"BETA"_s);

    EXPECT_EQ(names(), QStringList { u"Beta"_s });
    EXPECT_EQ(extractStatus(done), u"done"_s);
    EXPECT_EQ(extractStatus(manual), u"manual"_s);
    EXPECT_EQ(aliases(), (Aliases { { u"acme"_s, beta }, { u"acme corp holdings"_s, beta } }));
    EXPECT_EQ(search(u"organization:beta"_s), (Ids { done, manual, b }));
    EXPECT_TRUE(search(u"organization:acme"_s).empty());
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
    EXPECT_EQ(names(), (QStringList { u"One"_s, u"Target"_s, u"Two"_s }));
    EXPECT_EQ(organizationOf(w), two);
    EXPECT_EQ(aliases(), (Aliases { { u"deux"_s, two } }));

    db.run(u"UPDATE documents SET organization_id = ? WHERE id = ?"_s, { one, o });

    store->merge({ one, target, two }, target);
    EXPECT_EQ(names(), QStringList { u"Target"_s });
    EXPECT_EQ(aliases(), (Aliases { { u"one"_s, target }, { u"two"_s, target }, { u"deux"_s, target } }));
    EXPECT_EQ(search(u"organization:target"_s), (Ids { t, o, w }));
    EXPECT_EQ(extractStatus(w), u"manual"_s);
}

TEST_F(OrganizationRegistry, deleteOrganization_leavesItsScansUnfiledWithTheirStatuses)
{
    const auto acme = organization(u"Acme"_s);
    const auto done = modelFiled(u"a.pdf"_s, acme, u"Acme"_s);
    const auto manual = modelFiled(u"b.pdf"_s, acme, u"Acme"_s, u"manual"_s);
    db.run(u"INSERT INTO organization_aliases VALUES ('acme corp', ?)"_s, { acme });
    modelFiled(u"c.pdf"_s, organization(u"Beta"_s), u"Beta"_s);

    store->deleteOrganization(acme);

    EXPECT_EQ(names(), QStringList { u"Beta"_s });
    EXPECT_FALSE(organizationOf(done));
    EXPECT_EQ(extractStatus(done), u"done"_s);
    EXPECT_EQ(extractStatus(manual), u"manual"_s);
    EXPECT_TRUE(aliases().isEmpty());
    EXPECT_TRUE(search(u"organization:acme"_s).empty());
    EXPECT_EQ(search(u"\"a pdf\" OR \"b pdf\""_s), (Ids { done, manual })); // still found
}

// Missing scans count too; ties ignore case.
TEST_F(OrganizationRegistry, organizationNamesForPrompt_mostUsedFirst)
{
    const std::pair<const char *, int> organizations[]
        = { { "Beta", 1 }, { "Zeta", 3 }, { "alpha", 1 }, { "Gamma", 0 }, { "delta", 2 } };
    for (const auto &[name, scans] : organizations) {
        const auto id = organization(QString::fromUtf8(name));
        for (int n = 0; n < scans; ++n)
            add({ .path = QString::fromUtf8(name) + QString::number(n), .missing = n == 1, .organizationID = id });
    }
    EXPECT_EQ(store->organizationNamesForPrompt(100),
        (QStringList { u"Zeta"_s, u"delta"_s, u"alpha"_s, u"Beta"_s, u"Gamma"_s }));
    EXPECT_EQ(store->organizationNamesForPrompt(2), (QStringList { u"Zeta"_s, u"delta"_s }));
}

} // namespace
