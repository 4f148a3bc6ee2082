#include "ui/UpdateCheck.h"

#include "ui/Appcast.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSettings>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

// Appcasts list a few dozen releases at most; anything much larger is not one.
constexpr qint64 maximumFeedBytes = 4 * 1024 * 1024;
constexpr int transferTimeoutMilliseconds = 30'000;

UpdateCheck::Result failure(QString message)
{
    return { .outcome = UpdateCheck::Result::Outcome::failed, .message = std::move(message) };
}

// An INI value with a comma reads as a list.
QString entry(const QSettings &settings, const QString &key)
{
    const QVariant value = settings.value(key);
    if (value.typeId() == QMetaType::QStringList)
        return value.toStringList().join(u',').trimmed();
    return value.toString().trimmed();
}

} // namespace

UpdateSource UpdateSource::builtIn()
{
    return { QStringLiteral(VELLUMARK_UPDATE_FEED), QStringLiteral(VELLUMARK_UPDATE_KEY) };
}

UpdateSource UpdateSource::read(const UpdateSource &built, const QString &configFile)
{
    UpdateSource source = built;
    if (source.complete())
        return source;
    const QSettings settings(configFile, QSettings::IniFormat);
    if (source.feed.isEmpty())
        source.feed = entry(settings, u"SUFeedURL"_s);
    if (source.publicKey.isEmpty())
        source.publicKey = entry(settings, u"SUPublicEDKey"_s);
    return source;
}

UpdateCheck::UpdateCheck(QObject *parent)
    : UpdateCheck(UpdateSource::read(UpdateSource::builtIn(), UpdateSource::systemConfigFile()),
        QStringLiteral(VELLUMARK_VERSION), parent)
{
}

UpdateCheck::UpdateCheck(UpdateSource source, QString runningVersion, QObject *parent)
    : QObject(parent)
    , source_(std::move(source))
    , runningVersion_(std::move(runningVersion))
{
}

// The network manager and a running reply are children, so they go after QObject has cut their
// connections to this object: an abort on the way out never reports to a half-destroyed check.
UpdateCheck::~UpdateCheck() = default;

bool UpdateCheck::canCheck() const
{
    return source_.complete() && !reply_;
}

void UpdateCheck::checkNow()
{
    if (!canCheck())
        return;
    if (!network_)
        network_ = new QNetworkAccessManager(this);
    QNetworkRequest request { QUrl(source_.feed) };
    request.setTransferTimeout(transferTimeoutMilliseconds);
    request.setHeader(QNetworkRequest::UserAgentHeader, QString(u"Vellumark/"_s + runningVersion_));
    QNetworkReply *reply = network_->get(request);
    reply_ = reply;
    auto tooLarge = std::make_shared<bool>(false);
    connect(reply, &QNetworkReply::downloadProgress, this, [reply, tooLarge](qint64 received, qint64 total) {
        if (received > maximumFeedBytes || total > maximumFeedBytes) {
            *tooLarge = true;
            reply->abort();
        }
    });
    connect(reply, &QNetworkReply::finished, this, [this, reply, tooLarge] {
        reply->deleteLater();
        reply_ = nullptr;
        const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        if (*tooLarge)
            done(failure(u"The update feed is too large to be an appcast"_s));
        else if (status >= 400)
            done(failure(u"The update server answered HTTP "_s + QString::number(status)));
        else if (reply->error() != QNetworkReply::NoError)
            done(failure(u"Couldn't reach the update server: "_s + reply->errorString()));
        else
            done(evaluate(reply->readAll(), runningVersion_));
    });
    Q_EMIT canCheckChanged(false);
}

UpdateCheck::Result UpdateCheck::evaluate(const QByteArray &feed, QStringView runningVersion)
{
    try {
        const auto newest = Appcast::newest(Appcast::releases(feed));
        if (!newest)
            return failure(u"The update feed lists no release"_s);
        if (newest->version <= Appcast::Version::parse(runningVersion).value_or(Appcast::Version()))
            return { .outcome = Result::Outcome::upToDate };
        return { .outcome = Result::Outcome::newer, .version = newest->versionText, .page = newest->page };
    } catch (const Appcast::Invalid &invalid) {
        return failure(invalid.message());
    }
}

void UpdateCheck::done(const Result &result)
{
    Q_EMIT canCheckChanged(canCheck());
    Q_EMIT finished(result);
}
