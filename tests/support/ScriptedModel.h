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
public:
    struct Call {
        bool structured = false;
        Extractor::ModelRequest request;
    };
    // Facts answer a structured request, text a plain one; an error answers either.
    using Reply = std::variant<PageFacts, QString, Extractor::GenerationError>;
    using Rule = std::function<Reply(const Call &call, const std::stop_token &stop)>;

    void push(Reply reply);
    void setRule(Rule rule);
    std::vector<Call> calls() const;

    // What the model reports about itself.
    void setAvailability(Extractor::Availability availability);
    // Counts a token per 4 characters when set; otherwise counts nothing, like a server without a
    // tokenizer.
    void setCountsTokens(bool counts);

    Extractor::Availability availability(const std::stop_token &stop = {}) override;
    qint64 contextSize() override { return 4096; }
    QString systemDescription() override;
    PageFacts respondStructured(const Extractor::ModelRequest &request, const std::stop_token &stop) override;
    QString respondText(const Extractor::ModelRequest &request, const std::stop_token &stop) override;
    std::optional<qint64> count(const QString &text) override;

private:
    Reply next(const Call &call, const std::stop_token &stop);

    mutable QMutex mutex_;
    std::deque<Reply> replies_;
    Rule rule_;
    std::vector<Call> calls_;
    Extractor::Availability availability_ { true, std::nullopt };
    bool countsTokens_ = false;
};

// Shorthands for scripts.
namespace Script {
PageFacts facts(bool firstPage, const QString &kind, const QString &organization, const QString &date,
    const QString &dateLabel = {});
// The five-line plain-text answer.
QString plain(bool firstPage, const QString &kind, const QString &organization, const QString &date);
Extractor::GenerationError error(Extractor::GenerationError::Kind kind, const QString &description = {});
Extractor::GenerationError refusal(const QString &explanation);
} // namespace Script
