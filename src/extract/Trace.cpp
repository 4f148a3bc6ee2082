#include "extract/Trace.h"

#include "extract/JsonFields.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QStringList>

#include <cmath>

using Extractor::Trace;

namespace {
// Transcripts count time from the start of 2001, UTC.
constexpr qint64 referenceMSecs = 978'307'200'000;
// About 30,000 years either way: any real transcript date, and far inside what QDateTime can hold.
constexpr double farthestSeconds = 1e12;

bool isCanonicalUuid(const QString &text)
{
    static const QRegularExpression uuid(
        QStringLiteral("^[0-9A-Fa-f]{8}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{12}$"));
    return uuid.match(text).hasMatch();
}

bool requiredText(const QJsonObject &object, const QString &key, QString &into)
{
    const QJsonValue value = object.value(key);
    if (!value.isString())
        return false;
    into = value.toString();
    return true;
}

QString oneDecimal(double value)
{
    return QString::asprintf("%.1f", value);
}
} // namespace

QJsonObject Trace::Attempt::toJson() const
{
    QJsonObject object {
        { QStringLiteral("id"), id.toString(QUuid::WithoutBraces).toUpper() },
        { QStringLiteral("label"), label },
        { QStringLiteral("mode"), mode },
        { QStringLiteral("instructions"), instructions },
        { QStringLiteral("prompt"), prompt },
        { QStringLiteral("outcome"), outcome },
        { QStringLiteral("seconds"), seconds },
    };
    if (tokens)
        object.insert(QStringLiteral("tokens"), *tokens);
    JsonFields::insert(object, QStringLiteral("response"), response);
    JsonFields::insert(object, QStringLiteral("refusalExplanation"), refusalExplanation);
    return object;
}

std::optional<Trace::Attempt> Trace::Attempt::fromJson(const QJsonValue &json)
{
    if (!json.isObject())
        return std::nullopt;
    const QJsonObject object = json.toObject();
    Attempt attempt;
    QString id;
    if (!requiredText(object, QStringLiteral("id"), id) || !isCanonicalUuid(id)
        || !requiredText(object, QStringLiteral("label"), attempt.label)
        || !requiredText(object, QStringLiteral("mode"), attempt.mode)
        || !requiredText(object, QStringLiteral("instructions"), attempt.instructions)
        || !requiredText(object, QStringLiteral("prompt"), attempt.prompt)
        || !requiredText(object, QStringLiteral("outcome"), attempt.outcome)
        || !JsonFields::optionalText(object, QStringLiteral("response"), attempt.response)
        || !JsonFields::optionalText(object, QStringLiteral("refusalExplanation"), attempt.refusalExplanation))
        return std::nullopt;
    attempt.id = QUuid::fromString(id);
    const std::optional<double> seconds = JsonFields::number(object.value(QStringLiteral("seconds")));
    if (!seconds)
        return std::nullopt;
    attempt.seconds = *seconds;
    const QJsonValue tokens = object.value(QStringLiteral("tokens"));
    if (!tokens.isUndefined() && !tokens.isNull()) {
        attempt.tokens = JsonFields::integer(tokens);
        if (!attempt.tokens)
            return std::nullopt;
    }
    return attempt;
}

std::optional<QByteArray> Trace::encode() const
{
    if (!date.isValid())
        return std::nullopt;
    QJsonArray attemptList;
    for (const Attempt &attempt : attempts) {
        if (!std::isfinite(attempt.seconds))
            return std::nullopt;
        attemptList.append(attempt.toJson());
    }
    QJsonArray pageList;
    for (const PageAnswer &page : pages)
        pageList.append(page.toJson());
    QJsonObject object {
        { QStringLiteral("date"), double(date.toMSecsSinceEpoch() - referenceMSecs) / 1000.0 },
        { QStringLiteral("system"), system },
        { QStringLiteral("customInstructions"), customInstructions },
        { QStringLiteral("attempts"), attemptList },
        { QStringLiteral("pages"), pageList },
    };
    JsonFields::insert(object, QStringLiteral("hint"), hint);
    JsonFields::insert(object, QStringLiteral("consensus"), consensus);
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

std::optional<Trace> Trace::decode(const QByteArray &json)
{
    const QJsonDocument document = QJsonDocument::fromJson(json);
    if (!document.isObject())
        return std::nullopt;
    const QJsonObject object = document.object();
    Trace trace;
    const std::optional<double> seconds = JsonFields::number(object.value(QStringLiteral("date")));
    const QJsonValue customInstructions = object.value(QStringLiteral("customInstructions"));
    const QJsonValue attempts = object.value(QStringLiteral("attempts"));
    const QJsonValue pages = object.value(QStringLiteral("pages"));
    if (!seconds || std::fabs(*seconds) > farthestSeconds || !customInstructions.isBool() || !attempts.isArray()
        || !pages.isArray() || !requiredText(object, QStringLiteral("system"), trace.system)
        || !JsonFields::optionalText(object, QStringLiteral("hint"), trace.hint)
        || !JsonFields::optionalText(object, QStringLiteral("consensus"), trace.consensus))
        return std::nullopt;
    trace.date = QDateTime::fromMSecsSinceEpoch(referenceMSecs + qint64(std::llround(*seconds * 1000.0)), Qt::UTC);
    trace.customInstructions = customInstructions.toBool();
    for (const QJsonValue &value : attempts.toArray()) {
        std::optional<Attempt> attempt = Attempt::fromJson(value);
        if (!attempt)
            return std::nullopt;
        trace.attempts.push_back(std::move(*attempt));
    }
    for (const QJsonValue &value : pages.toArray()) {
        std::optional<PageAnswer> page = PageAnswer::fromJson(value);
        if (!page)
            return std::nullopt;
        trace.pages.push_back(std::move(*page));
    }
    return trace;
}

QString Trace::summary() const
{
    QStringList lines;
    if (hint)
        lines.append(u"Hint: " + *hint);
    for (const PageAnswer &page : pages) {
        const QString date
            = page.date ? (page.dateInText ? *page.date : *page.date + u" (not in text)") : QStringLiteral("no date");
        lines.append(u"Page " + QString::number(page.page + 1) + (page.firstPage ? u" (first page)" : u"") + u": "
            + page.organization.value_or(QStringLiteral("no organization")) + u", "
            + page.kind.value_or(QStringLiteral("no type")) + u", " + date);
    }
    const Attempt *firstFailure = nullptr;
    qsizetype failed = 0;
    qsizetype refused = 0;
    double seconds = 0;
    for (const Attempt &attempt : attempts) {
        seconds += attempt.seconds;
        if (attempt.outcome == u"OK")
            continue;
        ++failed;
        if (attempt.refusalExplanation)
            ++refused;
        if (!firstFailure)
            firstFailure = &attempt;
    }
    if (firstFailure) {
        QString line = QString::number(failed) + u" of " + QString::number(attempts.size()) + u" requests failed";
        if (refused > 0)
            line += u" (" + QString::number(refused) + u" refused)";
        line += u": " + firstFailure->outcome;
        if (firstFailure->refusalExplanation)
            line += u" \u201C" + *firstFailure->refusalExplanation + u"\u201D";
        lines.append(line);
    }
    if (consensus)
        lines.append(*consensus);
    lines.append(QString::number(attempts.size()) + u" requests, " + oneDecimal(seconds) + u" s");
    return lines.join(u'\n');
}

QString Trace::fullText(const QLocale &locale) const
{
    QString text = u"Vellumark extraction, " + locale.toString(date.toLocalTime(), QLocale::ShortFormat) + u'\n';
    text += system + u'\n';
    if (customInstructions)
        text += u"Using custom instructions.\n";
    if (hint)
        text += u"Hint: " + *hint + u'\n';
    if (consensus)
        text += u"Consensus: " + *consensus + u'\n';
    for (std::size_t i = 0; i < attempts.size(); ++i) {
        const Attempt &attempt = attempts[i];
        text += u"\n===== Request " + QString::number(i + 1) + u": " + attempt.label + u" [" + attempt.mode
            + u"] =====\n";
        text += u"Outcome: " + attempt.outcome + u" in " + oneDecimal(attempt.seconds) + u's';
        if (attempt.tokens)
            text += u", " + QString::number(*attempt.tokens) + u" tokens";
        text += u'\n';
        if (attempt.refusalExplanation)
            text += u"Model's explanation: " + *attempt.refusalExplanation + u'\n';
        text += u"\n--- Instructions ---\n" + attempt.instructions + u"\n\n--- Prompt ---\n" + attempt.prompt + u'\n';
        if (attempt.response)
            text += u"\n--- Response ---\n" + *attempt.response + u'\n';
    }
    return text;
}
