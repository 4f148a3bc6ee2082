#include "library/Editing.h"

#include "core/Error.h"
#include "core/OrgMatching.h"
#include "extract/Instructions.h"

#include <QPointer>

namespace {

DocumentIDs idsOf(const DocumentIDSet &ids)
{
    return DocumentIDs(ids.begin(), ids.end());
}

// YYYY-MM-DD, the year always in four digits.
QString catalogueDate(const QDate &date)
{
    return QStringLiteral("%1-%2-%3")
        .arg(date.year(), 4, 10, QLatin1Char('0'))
        .arg(date.month(), 2, 10, QLatin1Char('0'))
        .arg(date.day(), 2, 10, QLatin1Char('0'));
}

} // namespace

Editing::Editing(Catalogue &catalogue, WorkScheduler &work, QObject *parent)
    : QObject(parent)
    , catalogue_(catalogue)
    , work_(work)
{
}

QCoro::Task<> Editing::edit(std::function<void(ScanStore &)> body, Touched touched)
{
    const std::shared_ptr<Catalogue::Store> store = catalogue_.store();
    if (!store)
        co_return;
    QPointer<Editing> self(this);
    std::optional<QString> failure;
    try {
        co_await store->run([body](ScanStore &s) { body(s); });
    } catch (const std::exception &error) {
        failure = messageOf(error);
    }
    if (!self || catalogue_.store() != store)
        co_return;
    if (failure)
        Q_EMIT editFailed(*failure);
    if (touched.everything)
        co_await catalogue_.reload();
    else
        co_await catalogue_.refresh(std::move(touched.documents), touched.organizations);
    if (!self || catalogue_.store() != store || failure)
        co_return;
    work_.startWork();
}

QCoro::Task<> Editing::setOrganization(DocumentIDSet ids, std::optional<QString> name)
{
    return edit([ids = idsOf(ids), name](ScanStore &s) { s.setOrganization(ids, name); }, { idsOf(ids), true });
}

QCoro::Task<> Editing::setKind(DocumentIDSet ids, std::optional<QString> kind)
{
    return edit([ids = idsOf(ids), kind](ScanStore &s) { s.setKind(ids, kind); }, { idsOf(ids) });
}

QCoro::Task<> Editing::setDate(DocumentIDSet ids, std::optional<QDate> date)
{
    std::optional<QString> text;
    if (date && date->isValid())
        text = catalogueDate(*date);
    return edit([ids = idsOf(ids), text](ScanStore &s) { s.setDate(ids, text); }, { idsOf(ids) });
}

QCoro::Task<> Editing::reextract(DocumentIDSet ids)
{
    work_.request(ids);
    return edit([ids = idsOf(ids)](ScanStore &s) { s.resetExtraction(ids); }, { idsOf(ids) });
}

QCoro::Task<> Editing::rerunOCR(DocumentIDSet ids)
{
    work_.request(ids);
    return edit([ids = idsOf(ids)](ScanStore &s) { s.resetOCR(ids); }, { idsOf(ids) });
}

QCoro::Task<> Editing::renameOrganization(std::int64_t id, QString name)
{
    const std::optional<QString> cleaned = OrgMatching::clean(name);
    if (!cleaned)
        return []() -> QCoro::Task<> { co_return; }();
    return edit(
        [id, name = *cleaned](ScanStore &s) { s.renameOrganization(id, name); }, { catalogue_.documentsOf(id), true });
}

QCoro::Task<> Editing::mergeOrganization(std::int64_t source, std::int64_t target)
{
    return edit(
        [source, target](ScanStore &s) { s.merge({ source }, target); }, { catalogue_.documentsOf(source), true });
}

QCoro::Task<> Editing::deleteOrganization(std::int64_t id)
{
    return edit([id](ScanStore &s) { s.deleteOrganization(id); }, { catalogue_.documentsOf(id), true });
}

QCoro::Task<> Editing::reextractAllFromModel()
{
    return edit([](ScanStore &s) { s.reextractModelFiled(); }, { {}, true, true });
}

QCoro::Task<> Editing::reextractIncomplete()
{
    return edit([](ScanStore &s) { s.reextractIncomplete(); }, { {}, true, true });
}

QCoro::Task<> Editing::setCustomInstructions(std::optional<QString> text, bool reextract)
{
    // Blank or exactly the built-in text means the defaults, so a later change of them takes effect.
    std::optional<QString> effective = text;
    if (text && (text->trimmed().isEmpty() || *text == Extractor::defaultInstructions()))
        effective.reset();
    catalogue_.setCustomInstructions(effective);
    return edit(
        [effective, reextract](ScanStore &s) {
            s.setSetting(QStringLiteral("instructions"), effective);
            if (reextract)
                s.reextractModelFiled();
        },
        { {}, false, reextract });
}

QCoro::Task<> Editing::removeMissing(DocumentIDSet ids)
{
    DocumentIDs missing;
    for (const std::int64_t id : ids) {
        const auto found = catalogue_.documentsByID().find(id);
        if (found != catalogue_.documentsByID().end() && found->second.missing)
            missing.push_back(id);
    }
    // Scans compared with a deleted one lose that hint too: everything is read again.
    return edit([missing](ScanStore &s) { s.removeMissing(missing); }, { {}, true, true });
}
