#pragma once

#include "extract/model/LanguageModel.h"

#include <QMutex>
#include <QString>

#include <deque>
#include <functional>
#include <optional>
#include <stop_token>
#include <variant>
#include <vector>

// A LanguageModel that answers from a script and keeps every request it got. Queued replies are given
// first, in order; then the rule answers, if there is one. A reply of the wrong kind for the request,
// or no reply at all, throws std::logic_error, which the extractor passes on, so a test sees it. Like
// the real client it throws Cancelled when asked to stop, before looking at the script. Safe to
// script from one thread while another asks.
class ScriptedModel final : public Extractor::LanguageModel {
    template <typename F> auto locked(const F &f) const
    {
        QMutexLocker lock(&mutex_);
        return f();
    }

public:
    struct Call {
        bool structured = false;
        Extractor::ModelRequest request;
    };
    // Facts answer a structured request, text a plain one; an error answers either.
    using Reply = std::variant<PageFacts, QString, Extractor::GenerationError>;
    using Rule = std::function<Reply(const Call &call, const std::stop_token &stop)>;

    void push(Reply reply)
    {
        locked([&] { replies_.push_back(std::move(reply)); });
    }
    void setRule(Rule rule)
    {
        locked([&] { rule_ = std::move(rule); });
    }
    std::vector<Call> calls() const
    {
        return locked([&] { return calls_; });
    }
    // What the model reports about itself.
    void setAvailability(Extractor::Availability availability)
    {
        locked([&] { availability_ = std::move(availability); });
    }

    Extractor::Availability availability(const std::stop_token &stop = {}) override;
    qint64 contextSize() override { return 4096; }
    QString systemDescription() override { return QLatin1String("scripted model, context 4096 tokens"); }
    PageFacts respondStructured(const Extractor::ModelRequest &request, const std::stop_token &stop) override;
    QString respondText(const Extractor::ModelRequest &request, const std::stop_token &stop) override;
    // Counts nothing, like a server without a tokenizer.
    std::optional<qint64> count(const QString &) override { return std::nullopt; }

private:
    Reply next(const Call &call, const std::stop_token &stop);

    mutable QMutex mutex_;
    std::deque<Reply> replies_;
    Rule rule_;
    std::vector<Call> calls_;
    Extractor::Availability availability_ { true, std::nullopt };
};

// Shorthands for scripts.
namespace Script {
inline PageFacts facts(bool firstPage, const QString &kind, const QString &organization, const QString &date,
    const QString &dateLabel = {})
{
    return PageFacts { firstPage, kind, organization, dateLabel, date };
}
// The five-line plain-text answer.
QString plain(bool firstPage, const QString &kind, const QString &organization, const QString &date);
inline Extractor::GenerationError error(Extractor::GenerationError::Kind kind, const QString &description = {})
{
    return Extractor::GenerationError(kind, description);
}
inline Extractor::GenerationError refusal(const QString &explanation)
{
    return { Extractor::GenerationError::Kind::refusal, QStringLiteral("The model refused."), explanation };
}
} // namespace Script
