#include "support/ScriptedModel.h"

#include "core/Cancellation.h"

#include <QMutexLocker>

#include <stdexcept>

using Extractor::GenerationError;
using Extractor::ModelRequest;

Extractor::Availability ScriptedModel::availability(const std::stop_token &stop)
{
    throwIfCancelled(stop);
    return locked([&] { return availability_; });
}

ScriptedModel::Reply ScriptedModel::next(const Call &call, const std::stop_token &stop)
{
    throwIfCancelled(stop);
    Rule rule;
    {
        QMutexLocker lock(&mutex_);
        calls_.push_back(call);
        if (!replies_.empty()) {
            Reply reply = std::move(replies_.front());
            replies_.pop_front();
            return reply;
        }
        rule = rule_;
    }
    // The rule runs unlocked: it may block until stopped, or script more replies.
    if (!rule)
        throw std::logic_error("ScriptedModel: no reply scripted for request " + std::to_string(calls().size()));
    return rule(call, stop);
}

namespace {
// The reply if it is a `T`; throws the scripted error, or std::logic_error for the other kind of reply.
template <typename T> T answer(ScriptedModel::Reply reply)
{
    if (const auto *error = std::get_if<GenerationError>(&reply))
        throw *error;
    if (auto *value = std::get_if<T>(&reply))
        return std::move(*value);
    throw std::logic_error("ScriptedModel: the wrong kind of reply scripted for the request");
}
} // namespace

PageFacts ScriptedModel::respondStructured(const ModelRequest &request, const std::stop_token &stop)
{
    return answer<PageFacts>(next(Call { true, request }, stop));
}

QString ScriptedModel::respondText(const ModelRequest &request, const std::stop_token &stop)
{
    return answer<QString>(next(Call { false, request }, stop));
}

QString Script::plain(bool firstPage, const QString &kind, const QString &organization, const QString &date)
{
    const auto orNone = [](const QString &value) { return value.isEmpty() ? QStringLiteral("none") : value; };
    return u"First page: " + QString::fromLatin1(firstPage ? "yes" : "no") + u"\nType: " + orNone(kind)
        + u"\nOrganization: " + orNone(organization) + u"\nDate label: none\nDate: " + orNone(date);
}
