#include "support/Printing.h"
#include "support/StoreFixture.h"

#include <QMap>

using Ids = std::vector<std::int64_t>;
using Aliases = QMap<QString, std::int64_t>;

namespace {

class OrganizationRegistry : public StoreFixture {
protected:
    std::int64_t organization(const QString &name, bool namedByUser = false)
    {
        const auto id = CatalogueFixtures::insertOrganization(db, name);
        db.run(QStringLiteral("UPDATE organizations SET named_by_user = ? WHERE id = ?"), { namedByUser, id });
        return id;
    }
    // A scan filed under `organization` because the model answered `answer`.
    std::int64_t modelFiled(const QString &path, std::int64_t organization, const QString &answer,
        const QString &status = QStringLiteral("done"))
    {
        const auto id = add({ .path = path,
            .ocrStatus = QStringLiteral("done"),
            .extractStatus = status,
            .organizationID = organization });
        db.run(QStringLiteral("UPDATE documents SET model_organization = ? WHERE id = ?"), { answer, id });
        return id;
    }
    std::int64_t waitingForModel(const QString &path)
    {
        return add({ .path = path, .ocrStatus = QStringLiteral("done"), .extractStatus = QStringLiteral("pending") });
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
        const auto text = column(id, QStringLiteral("organization_id"));
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
        Statement statement = db.prepare(QStringLiteral("SELECT alias_key, organization_id FROM organization_aliases"));
        statement.bind({});
        Aliases result;
        while (statement.step())
            result.insert(statement.text(0), statement.int64(1));
        return result;
    }
    std::optional<QString> namedByUser(std::int64_t organization)
    {
        return value(QStringLiteral("SELECT named_by_user FROM organizations WHERE id = %1").arg(organization));
    }
    std::optional<QString> extractStatus(std::int64_t id) { return column(id, QStringLiteral("extract_status")); }
};

// ---- Filing by hand ----

// An existing name in any case files there; otherwise the cleaned name is created, user-named, even when
// an organization matches it loosely: the user's exact choice wins.
TEST_F(OrganizationRegistry, setOrganization_existingNameInAnyCaseOrANewOne)
{
    const auto beta = organization(QStringLiteral("Beta Bank"));
    modelFiled(QStringLiteral("b.pdf"), beta, QStringLiteral("Beta Bank"));
    const auto widgets = organization(QStringLiteral("Acme Widgets"));
    modelFiled(QStringLiteral("w.pdf"), widgets, QStringLiteral("Acme Widgets"));
    const auto first = waitingForModel(QStringLiteral("1.pdf"));
    const auto second = waitingForModel(QStringLiteral("2.pdf"));
    db.run(QStringLiteral("UPDATE documents SET error = 'model busy' WHERE id = ?"), { first });

    store->setOrganization({ first }, QStringLiteral("beta bank"));
    store->setOrganization({ second }, QStringLiteral("  \"Acme, Inc.\" "));

    EXPECT_EQ(organizationOf(first), beta);
    EXPECT_EQ(extractStatus(first), QStringLiteral("manual"));
    EXPECT_FALSE(column(first, QStringLiteral("error")));
    EXPECT_EQ(search(QStringLiteral("organization:beta")), Ids { first });
    const auto created = organizationOf(second).value_or(widgets);
    EXPECT_NE(created, widgets);
    EXPECT_EQ(
        names(), (QStringList { QStringLiteral("Acme"), QStringLiteral("Acme Widgets"), QStringLiteral("Beta Bank") }));
    EXPECT_EQ(namedByUser(created), QStringLiteral("1"));
    EXPECT_TRUE(aliases().isEmpty());
}

TEST_F(OrganizationRegistry, setOrganization_overruledModelAnswersBecomeAnAliasOfTheTarget)
{
    const auto a = organization(QStringLiteral("Acme Corporation"));
    const Ids moved { modelFiled(QStringLiteral("1.pdf"), a, QStringLiteral("ACME Corp")),
        modelFiled(QStringLiteral("2.pdf"), a, QStringLiteral("Acme Corporation")),
        modelFiled(QStringLiteral("3.pdf"), a, QStringLiteral("ACME Corp")) };
    const auto b = organization(QStringLiteral("Beta Holdings"), true);
    modelFiled(QStringLiteral("b.pdf"), b, QStringLiteral("Beta Holdings"));

    store->setOrganization(moved, QStringLiteral("Beta Holdings"));

    EXPECT_EQ(names(), QStringList { QStringLiteral("Beta Holdings") }); // A filed nothing any more
    EXPECT_EQ(aliases(), (Aliases { { QStringLiteral("acme"), b } }));
    EXPECT_EQ(search(QStringLiteral("organization:beta")), moved);
    EXPECT_TRUE(search(QStringLiteral("organization:acme")).empty());
    // The model's next answer of the same kind lands there without help.
    EXPECT_EQ(organizationOf(modelAnswers(QStringLiteral("next.pdf"), QStringLiteral("Acme Corp."))), b);
    EXPECT_EQ(names(), QStringList { QStringLiteral("Beta Holdings") });
}

TEST_F(OrganizationRegistry, setOrganization_learnsOnlyFromModelFilingsItOverrules)
{
    const auto target = organization(QStringLiteral("Target"));
    modelFiled(QStringLiteral("t.pdf"), target, QStringLiteral("Target"));
    // Filed by hand before: the answer was already overruled once and is not the model's filing.
    const auto gamma = organization(QStringLiteral("Gamma"));
    const auto byHand
        = modelFiled(QStringLiteral("g.pdf"), gamma, QStringLiteral("Gamma Answer"), QStringLiteral("manual"));
    // Already filed under the target: nothing is overruled.
    const auto already = modelFiled(QStringLiteral("z.pdf"), target, QStringLiteral("Zeta Answer"));
    // The answer is the name of an organization that still files another scan.
    const auto epsilon = organization(QStringLiteral("Epsilon Energy"));
    const auto fromEpsilon = modelFiled(QStringLiteral("e1.pdf"), epsilon, QStringLiteral("EPSILON ENERGY INC"));
    modelFiled(QStringLiteral("e2.pdf"), epsilon, QStringLiteral("Epsilon Energy"));
    // Waiting for the model: it filed nothing yet.
    const auto waiting = waitingForModel(QStringLiteral("w.pdf"));
    db.run(QStringLiteral("UPDATE documents SET model_organization = 'Omega' WHERE id = ?"), { waiting });

    store->setOrganization({ byHand, already, fromEpsilon, waiting }, QStringLiteral("Target"));

    EXPECT_TRUE(aliases().isEmpty());
    EXPECT_EQ(names(), (QStringList { QStringLiteral("Epsilon Energy"), QStringLiteral("Target") }));
    EXPECT_FALSE(namedByUser(gamma)); // left without scans
}

TEST_F(OrganizationRegistry, setOrganization_withoutAName_clearsAndLearnsNothing)
{
    const auto delta = organization(QStringLiteral("Delta"));
    const std::optional<QString> noNames[] = { std::nullopt, QStringLiteral("N/A"), QStringLiteral(" ... ") };
    for (const auto &name : noNames) {
        const auto id = modelFiled(name.value_or(QStringLiteral("none")), delta, QStringLiteral("Delta"));
        store->setOrganization({ id }, name);
        EXPECT_FALSE(organizationOf(id));
        EXPECT_EQ(extractStatus(id), QStringLiteral("manual"));
    }
    EXPECT_TRUE(names().isEmpty());
    EXPECT_TRUE(aliases().isEmpty());
    EXPECT_TRUE(search(QStringLiteral("organization:delta")).empty());
}

// ---- Filing the model's answers ----

// A shorter name of an organization the model named becomes its name; one the user named keeps its
// name. Either way the answer is remembered, and a longer answer never renames.
TEST_F(OrganizationRegistry, saveExtraction_matchingAnswerLandsOnTheOrganizationAndMayShortenItsName)
{
    const auto acme = organization(QStringLiteral("Acme Bank Online Services"));
    const auto earlier = modelFiled(QStringLiteral("a.pdf"), acme, QStringLiteral("Acme Bank Online Services"));
    const auto beta = organization(QStringLiteral("Beta Energy Services"), true);
    modelFiled(QStringLiteral("b.pdf"), beta, QStringLiteral("Beta Energy Services"));

    const auto shorter = modelAnswers(QStringLiteral("a2.pdf"), QStringLiteral("ACME BANK"));
    EXPECT_EQ(organizationOf(modelAnswers(QStringLiteral("b2.pdf"), QStringLiteral("Beta Energy"))), beta);
    EXPECT_EQ(organizationOf(shorter), acme);
    EXPECT_EQ(names(), (QStringList { QStringLiteral("Acme Bank"), QStringLiteral("Beta Energy Services") }));
    EXPECT_EQ(namedByUser(acme), QStringLiteral("0"));
    EXPECT_EQ(aliases(),
        (Aliases { { QStringLiteral("acme bank"), acme }, { QStringLiteral("acme bank online services"), acme },
            { QStringLiteral("beta energy"), beta } }));
    EXPECT_EQ(search(QStringLiteral("organization:\"acme bank\"")), (Ids { earlier, shorter }));
    EXPECT_TRUE(search(QStringLiteral("organization:online")).empty());

    EXPECT_EQ(
        organizationOf(modelAnswers(QStringLiteral("a3.pdf"), QStringLiteral("Acme Bank Online Services"))), acme);
    EXPECT_EQ(organizationOf(modelAnswers(QStringLiteral("a4.pdf"), QStringLiteral("Acme Bank Mortgage Dept"))), acme);
    EXPECT_EQ(names(), (QStringList { QStringLiteral("Acme Bank"), QStringLiteral("Beta Energy Services") }));
}

TEST_F(OrganizationRegistry, saveExtraction_unknownOrAmbiguousAnswerCreatesAnAutoNamedOrganization)
{
    modelFiled(QStringLiteral("t.pdf"), organization(QStringLiteral("Acme Tools")), QStringLiteral("Acme Tools"));
    modelFiled(QStringLiteral("w.pdf"), organization(QStringLiteral("Acme Widgets")), QStringLiteral("Acme Widgets"));

    const auto ambiguous = modelAnswers(QStringLiteral("a.pdf"), QStringLiteral("Acme"));
    const auto unknown = modelAnswers(QStringLiteral("u.pdf"), QStringLiteral("Zenith Water Authority, Inc."));
    const auto none = modelAnswers(QStringLiteral("n.pdf"), QStringLiteral("Unknown"));

    EXPECT_EQ(names(),
        (QStringList { QStringLiteral("Acme"), QStringLiteral("Acme Tools"), QStringLiteral("Acme Widgets"),
            QStringLiteral("Zenith Water Authority") }));
    for (const auto id : { ambiguous, unknown })
        EXPECT_EQ(namedByUser(organizationOf(id).value_or(0)), QStringLiteral("0"));
    EXPECT_FALSE(organizationOf(none));
    EXPECT_EQ(column(none, QStringLiteral("model_organization")), QStringLiteral("Unknown"));
    EXPECT_TRUE(aliases().isEmpty());
}

// ---- Rename, merge, delete ----

TEST_F(OrganizationRegistry, renameOrganization_becomesUserNamedAndTheOldNameAnAlias)
{
    const auto acme = organization(QStringLiteral("Acme"));
    const auto scan = modelFiled(QStringLiteral("a.pdf"), acme, QStringLiteral("Acme"));

    store->renameOrganization(acme, QStringLiteral("Acme Industries"));

    EXPECT_EQ(names(), QStringList { QStringLiteral("Acme Industries") });
    EXPECT_EQ(aliases(), (Aliases { { QStringLiteral("acme"), acme } }));
    EXPECT_EQ(search(QStringLiteral("organization:industries")), Ids { scan });
    // A later shorter answer no longer renames it.
    EXPECT_EQ(organizationOf(modelAnswers(QStringLiteral("b.pdf"), QStringLiteral("ACME"))), acme);
    EXPECT_EQ(names(), QStringList { QStringLiteral("Acme Industries") });
}

TEST_F(OrganizationRegistry, renameOrganization_toAnotherOrganizationsName_mergesIntoIt)
{
    const auto acme = organization(QStringLiteral("Acme"));
    const auto done = modelFiled(QStringLiteral("a1.pdf"), acme, QStringLiteral("Acme"));
    const auto manual = modelFiled(QStringLiteral("a2.pdf"), acme, QStringLiteral("Acme"), QStringLiteral("manual"));
    db.run(QStringLiteral("INSERT INTO organization_aliases VALUES ('acme corp holdings', ?)"), { acme });
    const auto beta = organization(QStringLiteral("Beta"));
    const auto b = modelFiled(QStringLiteral("b.pdf"), beta, QStringLiteral("Beta"));

    store->renameOrganization(acme, QStringLiteral("BETA"));

    EXPECT_EQ(names(), QStringList { QStringLiteral("Beta") });
    EXPECT_EQ(extractStatus(done), QStringLiteral("done"));
    EXPECT_EQ(extractStatus(manual), QStringLiteral("manual"));
    EXPECT_EQ(
        aliases(), (Aliases { { QStringLiteral("acme"), beta }, { QStringLiteral("acme corp holdings"), beta } }));
    EXPECT_EQ(search(QStringLiteral("organization:beta")), (Ids { done, manual, b }));
    EXPECT_TRUE(search(QStringLiteral("organization:acme")).empty());
}

TEST_F(OrganizationRegistry, merge_movesScansAndAliasesOfEverySourceAllOrNothing)
{
    const auto target = organization(QStringLiteral("Target"));
    const auto t = modelFiled(QStringLiteral("t.pdf"), target, QStringLiteral("Target"));
    const auto one = organization(QStringLiteral("One"));
    const auto o = modelFiled(QStringLiteral("o.pdf"), one, QStringLiteral("One"));
    const auto two = organization(QStringLiteral("Two"));
    const auto w = modelFiled(QStringLiteral("w.pdf"), two, QStringLiteral("Two"), QStringLiteral("manual"));
    db.run(QStringLiteral("INSERT INTO organization_aliases VALUES ('deux', ?)"), { two });

    // No organization 999: with the first source's scans set aside, moving the second's there breaks
    // the foreign key half way.
    db.run(QStringLiteral("UPDATE documents SET organization_id = NULL WHERE id = ?"), { o });
    EXPECT_THROW(store->merge({ one, two }, 999), Database::Error);
    EXPECT_EQ(names(), (QStringList { QStringLiteral("One"), QStringLiteral("Target"), QStringLiteral("Two") }));
    EXPECT_EQ(organizationOf(w), two);
    EXPECT_EQ(aliases(), (Aliases { { QStringLiteral("deux"), two } }));

    db.run(QStringLiteral("UPDATE documents SET organization_id = ? WHERE id = ?"), { one, o });

    store->merge({ one, target, two }, target);
    EXPECT_EQ(names(), QStringList { QStringLiteral("Target") });
    EXPECT_EQ(aliases(),
        (Aliases { { QStringLiteral("one"), target }, { QStringLiteral("two"), target },
            { QStringLiteral("deux"), target } }));
    EXPECT_EQ(search(QStringLiteral("organization:target")), (Ids { t, o, w }));
    EXPECT_EQ(extractStatus(w), QStringLiteral("manual"));
}

TEST_F(OrganizationRegistry, deleteOrganization_leavesItsScansUnfiledWithTheirStatuses)
{
    const auto acme = organization(QStringLiteral("Acme"));
    const auto done = modelFiled(QStringLiteral("a.pdf"), acme, QStringLiteral("Acme"));
    const auto manual = modelFiled(QStringLiteral("b.pdf"), acme, QStringLiteral("Acme"), QStringLiteral("manual"));
    db.run(QStringLiteral("INSERT INTO organization_aliases VALUES ('acme corp', ?)"), { acme });
    modelFiled(QStringLiteral("c.pdf"), organization(QStringLiteral("Beta")), QStringLiteral("Beta"));

    store->deleteOrganization(acme);

    EXPECT_EQ(names(), QStringList { QStringLiteral("Beta") });
    EXPECT_FALSE(organizationOf(done));
    EXPECT_EQ(extractStatus(done), QStringLiteral("done"));
    EXPECT_EQ(extractStatus(manual), QStringLiteral("manual"));
    EXPECT_TRUE(aliases().isEmpty());
    EXPECT_TRUE(search(QStringLiteral("organization:acme")).empty());
    EXPECT_EQ(search(QStringLiteral("\"a pdf\" OR \"b pdf\"")), (Ids { done, manual })); // still found
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
        (QStringList { QStringLiteral("Zeta"), QStringLiteral("delta"), QStringLiteral("alpha"), QStringLiteral("Beta"),
            QStringLiteral("Gamma") }));
    EXPECT_EQ(store->organizationNamesForPrompt(2), (QStringList { QStringLiteral("Zeta"), QStringLiteral("delta") }));
}

} // namespace
