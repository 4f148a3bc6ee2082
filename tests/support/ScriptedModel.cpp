#include "support/ScriptedModel.h"

#include <QMutexLocker>

#include <stdexcept>

#include "core/Cancellation.h"

using Extractor::GenerationError;
using Extractor::ModelRequest;

void ScriptedModel::push(Reply reply)
{
    QMutexLocker lock(&mutex_);
    replies_.push_back(std::move(reply));
}

void ScriptedModel::setRule(Rule rule)
{
    QMutexLocker lock(&mutex_);
    rule_ = std::move(rule);
}

std::vector<ScriptedModel::Call> ScriptedModel::calls() const
{
    QMutexLocker lock(&mutex_);
    return calls_;
}

void ScriptedModel::setAvailability(Extractor::Availability availability)
{
    QMutexLocker lock(&mutex_);
    availability_ = std::move(availability);
}

void ScriptedModel::setCountsTokens(bool counts)
{
    QMutexLocker lock(&mutex_);
    countsTokens_ = counts;
}

Extractor::Availability ScriptedModel::availability(const std::stop_token &stop)
{
    throwIfCancelled(stop);
    QMutexLocker lock(&mutex_);
    return availability_;
}

QString ScriptedModel::systemDescription()
{
    return QStringLiteral("scripted model, context 4096 tokens, greedy sampling");
}

std::optional<qint64> ScriptedModel::count(const QString &text)
{
    QMutexLocker lock(&mutex_);
    if (!countsTokens_)
        return std::nullopt;
    return text.size() / 4;
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

PageFacts ScriptedModel::respondStructured(const ModelRequest &request, const std::stop_token &stop)
{
    Reply reply = next(Call { true, request }, stop);
    if (const auto *error = std::get_if<GenerationError>(&reply))
        throw *error;
    if (const auto *facts = std::get_if<PageFacts>(&reply))
        return *facts;
    throw std::logic_error("ScriptedModel: text scripted for a structured request");
}

QString ScriptedModel::respondText(const ModelRequest &request, const std::stop_token &stop)
{
    Reply reply = next(Call { false, request }, stop);
    if (const auto *error = std::get_if<GenerationError>(&reply))
        throw *error;
    if (const auto *text = std::get_if<QString>(&reply))
        return *text;
    throw std::logic_error("ScriptedModel: facts scripted for a plain-text request");
}

PageFacts Script::facts(
    bool firstPage, const QString &kind, const QString &organization, const QString &date, const QString &dateLabel)
{
    return PageFacts { firstPage, kind, organization, dateLabel, date };
}

QString Script::plain(bool firstPage, const QString &kind, const QString &organization, const QString &date)
{
    const auto orNone = [](const QString &value) { return value.isEmpty() ? QStringLiteral("none") : value; };
    return u"First page: " + QString::fromLatin1(firstPage ? "yes" : "no") + u"\nType: " + orNone(kind)
        + u"\nOrganization: " + orNone(organization) + u"\nDate label: none\nDate: " + orNone(date);
}

GenerationError Script::error(GenerationError::Kind kind, const QString &description)
{
    return GenerationError(kind, description);
}

GenerationError Script::refusal(const QString &explanation)
{
    return GenerationError(GenerationError::Kind::refusal, QStringLiteral("The model refused."), explanation);
}
