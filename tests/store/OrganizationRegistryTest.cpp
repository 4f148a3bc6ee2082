#include "support/StoreFixture.h"
#include "support/Printing.h"

#include <QMap>

using Ids = std::vector<std::int64_t>;

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
    void modelAnswers(std::int64_t id, const QString &organization)
    {
        store->saveExtraction(id, organization, std::nullopt, std::nullopt, std::nullopt, std::nullopt, std::nullopt);
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
    QMap<QString, std::int64_t> aliases()
    {
        Statement statement = db.prepare(QStringLiteral("SELECT alias_key, organization_id FROM organization_aliases"));
        statement.bind({});
        QMap<QString, std::int64_t> result;
        while (statement.step())
            result.insert(statement.text(0), statement.int64(1));
        return result;
    }
    std::optional<QString> namedByUser(std::int64_t organization)
    {
        return value(
            QStringLiteral("SELECT named_by_user FROM organizations WHERE id = ") + QString::number(organization));
    }
    std::optional<QString> extractStatus(std::int64_t id) { return column(id, QStringLiteral("extract_status")); }
};

// ---- Filing by hand ----

TEST_F(OrganizationRegistry, setOrganization_existingNameInAnyCase_filesThereAndCreatesNothing)
{
    const auto acme = organization(QStringLiteral("Acme Bank"));
    modelFiled(QStringLiteral("a.pdf"), acme, QStringLiteral("Acme Bank"));
    const auto scan = waitingForModel(QStringLiteral("b.pdf"));
    db.run(QStringLiteral("UPDATE documents SET error = 'model busy' WHERE id = ?"), { scan });

    store->setOrganization({ scan }, QStringLiteral("acme bank"));

    EXPECT_EQ(organizationOf(scan), acme);
    EXPECT_EQ(names(), QStringList { QStringLiteral("Acme Bank") });
    EXPECT_EQ(extractStatus(scan), QStringLiteral("manual"));
    EXPECT_FALSE(column(scan, QStringLiteral("error")));
    EXPECT_EQ(search(QStringLiteral("organization:acme")), Ids { scan });
}

// The user's exact choice wins over any loose match; the name is cleaned first.
TEST_F(OrganizationRegistry, setOrganization_newName_createsAUserNamedOrganizationEvenWhenOneMatchesLoosely)
{
    const auto widgets = organization(QStringLiteral("Acme Widgets"));
    modelFiled(QStringLiteral("a.pdf"), widgets, QStringLiteral("Acme Widgets"));
    const auto scan = waitingForModel(QStringLiteral("b.pdf"));

    store->setOrganization({ scan }, QStringLiteral("  \"Acme, Inc.\" "));

    const auto created = organizationOf(scan);
    ASSERT_TRUE(created);
    EXPECT_NE(*created, widgets);
    EXPECT_EQ(names(), (QStringList { QStringLiteral("Acme"), QStringLiteral("Acme Widgets") }));
    EXPECT_EQ(namedByUser(*created), QStringLiteral("1"));
    EXPECT_EQ(namedByUser(widgets), QStringLiteral("0"));
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
    EXPECT_EQ(aliases(), (QMap<QString, std::int64_t> { { QStringLiteral("acme"), b } }));
    for (const auto id : moved)
        EXPECT_EQ(organizationOf(id), b);
    EXPECT_EQ(search(QStringLiteral("organization:beta")), moved);
    EXPECT_TRUE(search(QStringLiteral("organization:acme")).empty());

    // The model's next answer of the same kind lands there without help.
    const auto next = waitingForModel(QStringLiteral("next.pdf"));
    modelAnswers(next, QStringLiteral("Acme Corp."));
    EXPECT_EQ(organizationOf(next), b);
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
    const auto a = modelFiled(QStringLiteral("a.pdf"), delta, QStringLiteral("Delta"));
    const auto b = modelFiled(QStringLiteral("b.pdf"), delta, QStringLiteral("Delta"));
    const auto c = modelFiled(QStringLiteral("c.pdf"), delta, QStringLiteral("Delta"));

    store->setOrganization({ a }, std::nullopt);
    store->setOrganization({ b }, QStringLiteral("N/A"));
    EXPECT_EQ(names(), QStringList { QStringLiteral("Delta") });
    store->setOrganization({ c }, QStringLiteral(" ... "));

    for (const auto id : { a, b, c }) {
        EXPECT_FALSE(organizationOf(id));
        EXPECT_EQ(extractStatus(id), QStringLiteral("manual"));
    }
    EXPECT_TRUE(names().isEmpty());
    EXPECT_TRUE(aliases().isEmpty());
    EXPECT_TRUE(search(QStringLiteral("organization:delta")).empty());
}

// ---- Filing the model's answers ----

TEST_F(OrganizationRegistry, saveExtraction_shorterNameOfAnAutoNamedOrganizationBecomesItsName)
{
    const auto acme = organization(QStringLiteral("Acme Bank Online Services"));
    const auto earlier = modelFiled(QStringLiteral("a.pdf"), acme, QStringLiteral("Acme Bank Online Services"));
    const auto scan = waitingForModel(QStringLiteral("b.pdf"));

    modelAnswers(scan, QStringLiteral("ACME BANK"));

    EXPECT_EQ(organizationOf(scan), acme);
    EXPECT_EQ(names(), QStringList { QStringLiteral("Acme Bank") });
    EXPECT_EQ(namedByUser(acme), QStringLiteral("0"));
    EXPECT_EQ(aliases(),
        (QMap<QString, std::int64_t> {
            { QStringLiteral("acme bank"), acme }, { QStringLiteral("acme bank online services"), acme } }));
    EXPECT_EQ(search(QStringLiteral("organization:\"acme bank\"")), (Ids { earlier, scan }));
    EXPECT_TRUE(search(QStringLiteral("organization:online")).empty());

    // The long form still lands there, and a longer answer never renames.
    const auto later = waitingForModel(QStringLiteral("c.pdf"));
    modelAnswers(later, QStringLiteral("Acme Bank Online Services"));
    const auto longer = waitingForModel(QStringLiteral("d.pdf"));
    modelAnswers(longer, QStringLiteral("Acme Bank Mortgage Department"));
    EXPECT_EQ(organizationOf(later), acme);
    EXPECT_EQ(organizationOf(longer), acme);
    EXPECT_EQ(names(), QStringList { QStringLiteral("Acme Bank") });
}

TEST_F(OrganizationRegistry, saveExtraction_userNamedOrganizationKeepsItsNameButLearnsTheAnswer)
{
    const auto beta = organization(QStringLiteral("Beta Energy Services"), true);
    modelFiled(QStringLiteral("a.pdf"), beta, QStringLiteral("Beta Energy Services"));
    const auto scan = waitingForModel(QStringLiteral("b.pdf"));

    modelAnswers(scan, QStringLiteral("Beta Energy"));

    EXPECT_EQ(organizationOf(scan), beta);
    EXPECT_EQ(names(), QStringList { QStringLiteral("Beta Energy Services") });
    EXPECT_EQ(aliases(), (QMap<QString, std::int64_t> { { QStringLiteral("beta energy"), beta } }));
}

TEST_F(OrganizationRegistry, saveExtraction_unknownOrAmbiguousAnswerCreatesAnAutoNamedOrganization)
{
    const auto tools = organization(QStringLiteral("Acme Tools"));
    modelFiled(QStringLiteral("t.pdf"), tools, QStringLiteral("Acme Tools"));
    const auto widgets = organization(QStringLiteral("Acme Widgets"));
    modelFiled(QStringLiteral("w.pdf"), widgets, QStringLiteral("Acme Widgets"));
    const auto ambiguous = waitingForModel(QStringLiteral("a.pdf"));
    const auto unknown = waitingForModel(QStringLiteral("u.pdf"));
    const auto none = waitingForModel(QStringLiteral("n.pdf"));

    modelAnswers(ambiguous, QStringLiteral("Acme"));
    modelAnswers(unknown, QStringLiteral("Zenith Water Authority, Inc."));
    modelAnswers(none, QStringLiteral("Unknown"));

    EXPECT_EQ(names(),
        (QStringList { QStringLiteral("Acme"), QStringLiteral("Acme Tools"), QStringLiteral("Acme Widgets"),
            QStringLiteral("Zenith Water Authority") }));
    for (const auto id : { ambiguous, unknown })
        EXPECT_EQ(namedByUser(*organizationOf(id)), QStringLiteral("0"));
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
    EXPECT_EQ(namedByUser(acme), QStringLiteral("1"));
    EXPECT_EQ(aliases(), (QMap<QString, std::int64_t> { { QStringLiteral("acme"), acme } }));
    EXPECT_EQ(search(QStringLiteral("organization:industries")), Ids { scan });

    // A later shorter answer no longer renames it.
    const auto next = waitingForModel(QStringLiteral("b.pdf"));
    modelAnswers(next, QStringLiteral("ACME"));
    EXPECT_EQ(organizationOf(next), acme);
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
    EXPECT_EQ(organizationOf(done), beta);
    EXPECT_EQ(organizationOf(manual), beta);
    EXPECT_EQ(extractStatus(done), QStringLiteral("done"));
    EXPECT_EQ(extractStatus(manual), QStringLiteral("manual"));
    EXPECT_EQ(aliases(),
        (QMap<QString, std::int64_t> {
            { QStringLiteral("acme"), beta }, { QStringLiteral("acme corp holdings"), beta } }));
    EXPECT_EQ(search(QStringLiteral("organization:beta")), (Ids { done, manual, b }));
    EXPECT_TRUE(search(QStringLiteral("organization:acme")).empty());
}

TEST_F(OrganizationRegistry, merge_movesScansAndAliasesOfEverySourceButTheTarget)
{
    const auto target = organization(QStringLiteral("Target"));
    const auto t = modelFiled(QStringLiteral("t.pdf"), target, QStringLiteral("Target"));
    const auto one = organization(QStringLiteral("One"));
    const auto o = modelFiled(QStringLiteral("o.pdf"), one, QStringLiteral("One"));
    const auto two = organization(QStringLiteral("Two"));
    const auto w = modelFiled(QStringLiteral("w.pdf"), two, QStringLiteral("Two"), QStringLiteral("manual"));
    db.run(QStringLiteral("INSERT INTO organization_aliases VALUES ('deux', ?)"), { two });

    store->merge({ one, target, two }, target);

    EXPECT_EQ(names(), QStringList { QStringLiteral("Target") });
    EXPECT_EQ(aliases(),
        (QMap<QString, std::int64_t> { { QStringLiteral("one"), target }, { QStringLiteral("two"), target },
            { QStringLiteral("deux"), target } }));
    EXPECT_EQ(search(QStringLiteral("organization:target")), (Ids { t, o, w }));
    EXPECT_EQ(extractStatus(w), QStringLiteral("manual"));
}

TEST_F(OrganizationRegistry, merge_failingHalfWay_leavesEveryOrganizationAndScanAsItWas)
{
    const auto one = organization(QStringLiteral("One"));
    const auto o = modelFiled(QStringLiteral("o.pdf"), one, QStringLiteral("One"));
    const auto two = organization(QStringLiteral("Two"));
    const auto w = modelFiled(QStringLiteral("w.pdf"), two, QStringLiteral("Two"));

    // No organization 999: moving the scans of the second source there breaks the foreign key.
    db.run(QStringLiteral("UPDATE documents SET organization_id = NULL WHERE id = ?"), { o });
    EXPECT_THROW(store->merge({ one, two }, 999), Database::Error);

    EXPECT_EQ(names(), (QStringList { QStringLiteral("One"), QStringLiteral("Two") }));
    EXPECT_EQ(organizationOf(w), two);
    EXPECT_TRUE(aliases().isEmpty());
}

TEST_F(OrganizationRegistry, deleteOrganization_leavesItsScansUnfiledWithTheirStatuses)
{
    const auto acme = organization(QStringLiteral("Acme"));
    const auto done = modelFiled(QStringLiteral("a.pdf"), acme, QStringLiteral("Acme"));
    const auto manual = modelFiled(QStringLiteral("b.pdf"), acme, QStringLiteral("Acme"), QStringLiteral("manual"));
    db.run(QStringLiteral("INSERT INTO organization_aliases VALUES ('acme corp', ?)"), { acme });
    const auto beta = organization(QStringLiteral("Beta"));
    modelFiled(QStringLiteral("c.pdf"), beta, QStringLiteral("Beta"));

    store->deleteOrganization(acme);

    EXPECT_EQ(names(), QStringList { QStringLiteral("Beta") });
    EXPECT_FALSE(organizationOf(done));
    EXPECT_FALSE(organizationOf(manual));
    EXPECT_EQ(extractStatus(done), QStringLiteral("done"));
    EXPECT_EQ(extractStatus(manual), QStringLiteral("manual"));
    EXPECT_TRUE(aliases().isEmpty());
    EXPECT_TRUE(search(QStringLiteral("organization:acme")).empty());
    EXPECT_EQ(
        search(QStringLiteral("\"a pdf\" OR \"b pdf\"")), (Ids { done, manual })); // still found, without organization
}

// ---- The list for the model's instructions ----

TEST_F(OrganizationRegistry, organizationNamesForPrompt_mostUsedFirstTiesIgnoringCase)
{
    // Missing scans count too.
    const struct {
        const char *name;
        int scans;
    } organizations[] = { { "Beta", 1 }, { "Zeta", 3 }, { "alpha", 1 }, { "Gamma", 0 }, { "delta", 2 } };
    for (const auto &o : organizations) {
        const auto id = organization(QString::fromUtf8(o.name));
        for (int n = 0; n < o.scans; ++n)
            add({ .path = QString::fromUtf8(o.name) + QString::number(n), .missing = n == 1, .organizationID = id });
    }
    EXPECT_EQ(store->organizationNamesForPrompt(100),
        (QStringList { QStringLiteral("Zeta"), QStringLiteral("delta"), QStringLiteral("alpha"), QStringLiteral("Beta"),
            QStringLiteral("Gamma") }));
    EXPECT_EQ(store->organizationNamesForPrompt(2), (QStringList { QStringLiteral("Zeta"), QStringLiteral("delta") }));
}

} // namespace
