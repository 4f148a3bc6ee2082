// The organization registry: which organization a name denotes, and the user's renames, merges and
// deletions, with the aliases that let later model answers land where the user put earlier ones.

#include "core/OrgMatching.h"
#include "store/ScanStore.h"
#include "store/Transaction.h"

#include <QSet>

#include <algorithm>

namespace {
std::optional<SQLValue> optionalID(std::optional<std::int64_t> id)
{
    return id ? std::optional<SQLValue>(*id) : std::nullopt;
}

// The first column of the first row, read before anything else is written.
std::optional<std::int64_t> firstInteger(Database &db, const QString &sql, const SQLParams &params)
{
    Statement statement = db.prepare(sql);
    statement.bind(params);
    return statement.step() ? std::optional(statement.int64(0)) : std::nullopt;
}

std::optional<QString> firstText(Database &db, const QString &sql, const SQLParams &params)
{
    Statement statement = db.prepare(sql);
    statement.bind(params);
    return statement.step() ? std::optional(statement.text(0)) : std::nullopt;
}

DocumentIDs filedUnder(Database &db, std::int64_t organization)
{
    Statement statement = db.prepare(QStringLiteral("SELECT id FROM documents WHERE organization_id = ?"));
    statement.bind({ organization });
    DocumentIDs ids;
    while (statement.step())
        ids.push_back(statement.int64(0));
    return ids;
}

qsizetype wordCount(const QString &key)
{
    return key.split(QLatin1Char(' '), Qt::SkipEmptyParts).size();
}
} // namespace

QStringList ScanStore::organizationNamesForPrompt(int limit)
{
    Statement statement
        = db_->prepare(QStringLiteral("SELECT o.name FROM organizations o LEFT JOIN documents d ON d.organization_id "
                                      "= o.id\nGROUP BY o.id ORDER BY COUNT(d.id) DESC, o.name LIMIT ?"));
    statement.bind({ limit });
    QStringList names;
    while (statement.step())
        names.append(statement.text(0));
    return names;
}

std::int64_t ScanStore::resolveOrganization(const QString &name, bool rememberAlias, bool exactOnly)
{
    if (const auto exact = firstInteger(*db_, QStringLiteral("SELECT id FROM organizations WHERE name = ?"), { name }))
        return *exact;

    if (!exactOnly) {
        std::vector<Organization> organizations;
        Statement all = db_->prepare(QStringLiteral("SELECT id, name FROM organizations"));
        all.bind({});
        while (all.step())
            organizations.push_back({ all.int64(0), all.text(1), 0 });
        OrgMatching::Aliases aliases;
        Statement learned = db_->prepare(QStringLiteral("SELECT alias_key, organization_id FROM organization_aliases"));
        learned.bind({});
        while (learned.step())
            aliases.insert(learned.text(0), learned.int64(1));

        const QString nameKey = OrgMatching::key(name);
        if (const auto alias = aliases.constFind(nameKey); alias != aliases.cend()) {
            const std::int64_t id = *alias;
            if (rememberAlias)
                addAlias(name, id);
            return id;
        }
        if (const auto id = OrgMatching::match(name, organizations, {})) {
            if (rememberAlias)
                addAlias(name, *id);
            // A shorter form of an auto-named organization's name becomes its name; the long form
            // stays as an alias. Names the user gave are never changed.
            const auto current = std::find_if(organizations.cbegin(), organizations.cend(),
                [&](const Organization &organization) { return organization.id == *id; });
            if (current != organizations.cend() && wordCount(nameKey) < wordCount(OrgMatching::key(current->name))) {
                const auto namedByUser = firstInteger(
                    *db_, QStringLiteral("SELECT named_by_user FROM organizations WHERE id = ?"), { *id });
                if (namedByUser == 0) {
                    db_->run(QStringLiteral("UPDATE organizations SET name = ? WHERE id = ?"), { name, *id });
                    addAlias(current->name, *id);
                    reindexOrganization(*id);
                }
            }
            return *id;
        }
    }

    db_->run(QStringLiteral("INSERT INTO organizations (name, named_by_user, created_at) VALUES (?, ?, ?)"),
        { name, exactOnly, secondsSince1970(QDateTime::currentDateTimeUtc()) });
    return db_->lastInsertID();
}

void ScanStore::addAlias(const QString &name, std::int64_t organization)
{
    const QString aliasKey = OrgMatching::key(name);
    if (aliasKey.isEmpty())
        return;
    db_->run(QStringLiteral("INSERT INTO organization_aliases (alias_key, organization_id) VALUES (?, ?) ON "
                            "CONFLICT(alias_key) DO UPDATE SET organization_id = excluded.organization_id"),
        { aliasKey, organization });
}

void ScanStore::removeUnusedOrganizations()
{
    // Missing scans still hold their organization, so an organization of only missing scans stays.
    db_->run(QStringLiteral("DELETE FROM organizations WHERE id NOT IN (SELECT organization_id FROM documents WHERE "
                            "organization_id IS NOT NULL)"));
}

void ScanStore::reindexOrganization(std::int64_t id)
{
    reindex(filedUnder(*db_, id));
}

void ScanStore::setOrganization(const DocumentIDs &ids, const std::optional<QString> &name)
{
    inImmediateTransaction(*db_, [&] {
        std::optional<std::int64_t> target;
        if (name)
            if (const auto cleaned = OrgMatching::clean(*name))
                target = resolveOrganization(*cleaned, false, true);

        // The model's own filings that this overrules: scans it filed somewhere other than the target.
        Statement overruled = db_->prepare(
            QStringLiteral("SELECT DISTINCT model_organization FROM documents WHERE id IN (") + idList(ids)
            + QStringLiteral(")\nAND extract_status = 'done' AND model_organization IS NOT NULL AND organization_id IS "
                             "NOT ?"));
        overruled.bind({ optionalID(target) });
        QStringList answers;
        while (overruled.step())
            answers.append(overruled.text(0));

        db_->run(QStringLiteral("UPDATE documents SET organization_id = ?, extract_status = 'manual', error = NULL "
                                "WHERE id IN (")
                + idList(ids) + QLatin1Char(')'),
            { optionalID(target) });
        reindex(ids);
        removeUnusedOrganizations();

        if (!target)
            return;
        // An answer that names another organization still filing scans stays that organization's.
        QSet<QString> otherKeys;
        Statement others = db_->prepare(QStringLiteral("SELECT name FROM organizations WHERE id != ?"));
        others.bind({ *target });
        while (others.step())
            otherKeys.insert(OrgMatching::key(others.text(0)));
        for (const QString &answer : std::as_const(answers))
            if (!otherKeys.contains(OrgMatching::key(answer)))
                addAlias(answer, *target);
    });
}

void ScanStore::renameOrganization(std::int64_t id, const QString &name)
{
    inImmediateTransaction(*db_, [&] {
        if (const auto other = firstInteger(
                *db_, QStringLiteral("SELECT id FROM organizations WHERE name = ? AND id != ?"), { name, id })) {
            mergeOrganizations({ id }, *other);
            return;
        }
        const auto oldName = firstText(*db_, QStringLiteral("SELECT name FROM organizations WHERE id = ?"), { id });
        db_->run(QStringLiteral("UPDATE organizations SET name = ?, named_by_user = 1 WHERE id = ?"), { name, id });
        if (oldName)
            addAlias(*oldName, id);
        reindexOrganization(id);
    });
}

void ScanStore::merge(const std::vector<std::int64_t> &sources, std::int64_t target)
{
    inImmediateTransaction(*db_, [&] { mergeOrganizations(sources, target); });
}

void ScanStore::mergeOrganizations(const std::vector<std::int64_t> &sources, std::int64_t target)
{
    for (const std::int64_t source : sources) {
        if (source == target)
            continue;
        const auto sourceName
            = firstText(*db_, QStringLiteral("SELECT name FROM organizations WHERE id = ?"), { source });
        db_->run(
            QStringLiteral("UPDATE documents SET organization_id = ? WHERE organization_id = ?"), { target, source });
        db_->run(QStringLiteral("UPDATE organization_aliases SET organization_id = ? WHERE organization_id = ?"),
            { target, source });
        db_->run(QStringLiteral("DELETE FROM organizations WHERE id = ?"), { source });
        if (sourceName)
            addAlias(*sourceName, target);
    }
    reindexOrganization(target);
}

void ScanStore::deleteOrganization(std::int64_t id)
{
    inImmediateTransaction(*db_, [&] {
        const DocumentIDs ids = filedUnder(*db_, id);
        db_->run(QStringLiteral("DELETE FROM organizations WHERE id = ?"), { id });
        reindex(ids);
    });
}
