#pragma once

#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>

class QNetworkAccessManager;
class QNetworkReply;

// Where updates are announced: the appcast's address and the key its releases are signed with. Updates
// are checked only when both are configured, at build time (VELLUMARK_UPDATE_FEED and
// VELLUMARK_UPDATE_KEY) or in the system's update.conf (SUFeedURL= and SUPublicEDKey=).
struct UpdateSource {
    QString feed;
    QString publicKey;

    bool complete() const { return !feed.isEmpty() && !publicKey.isEmpty(); }

    // What the build says, each entry taken from `configFile` (an INI file) where the build leaves it empty.
    static UpdateSource read(const UpdateSource &built, const QString &configFile);
    static UpdateSource builtIn();
    static QString systemConfigFile() { return QStringLiteral("/etc/vellumark/update.conf"); }
};

// "Check for Updates…": fetches the appcast and tells whether a newer release is out. It never
// downloads or installs a release, it only names it and its page for the user to open, so the
// releases' signatures (which would need a crypto library the program doesn't use) are not checked.
class UpdateCheck : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool canCheck READ canCheck NOTIFY canCheckChanged)
public:
    struct Result {
        enum class Outcome { newer, upToDate, failed };
        Outcome outcome = Outcome::failed;
        // newer: the release as the feed names it, and its page.
        QString version;
        QUrl page;
        // failed: what went wrong, for the user.
        QString message;
    };

    // As configured for this system, against this build's version.
    explicit UpdateCheck(QObject *parent = nullptr);
    UpdateCheck(UpdateSource source, QString runningVersion, QObject *parent = nullptr);
    ~UpdateCheck() override;

    // Whether a check can start now: updates are configured and no check is running.
    bool canCheck() const;
    // Starts a check unless one can't start now; finished() follows.
    void checkNow();

    // What a feed says about a program of `runningVersion`.
    static Result evaluate(const QByteArray &feed, QStringView runningVersion);

Q_SIGNALS:
    void canCheckChanged(bool canCheck);
    void finished(const UpdateCheck::Result &result);

private:
    void done(const Result &result);

    UpdateSource source_;
    QString runningVersion_;
    QNetworkAccessManager *network_ = nullptr;
    QPointer<QNetworkReply> reply_;
};
