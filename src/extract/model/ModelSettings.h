#pragma once

#include <QString>
#include <QUrl>

#include <memory>
#include <optional>

namespace Extractor {
class ModelServerClient;

// Which model server and model to use, from the user's settings, with per-run overrides.
struct ModelSettings {
    static inline const QString serverKey = QStringLiteral("ModelServer");
    static inline const QString modelKey = QStringLiteral("ModelName");
    static inline const QString contextKey = QStringLiteral("ModelContext");
    static inline const QString defaultServer = QStringLiteral("http://127.0.0.1:11434");
    static inline const QString defaultModel = QStringLiteral("qwen2.5:3b");
    static constexpr qint64 defaultContext = 4096;

    QUrl server;
    QString model;
    qint64 contextTokens = defaultContext;

    // The settings as the person left them; blank or unusable values give the defaults.
    static ModelSettings load();
    // These settings with the server and model given for one run (a blank override changes nothing).
    ModelSettings overridden(const std::optional<QString> &server, const std::optional<QString> &model) const;
    // A server as typed: "localhost:8080" means http://localhost:8080.
    static QUrl serverUrl(const QString &text);
    // Why the text typed for a server can't name one, for a person; absent when it can (blank means
    // the default).
    static std::optional<QString> serverProblem(const QString &text);

    std::unique_ptr<ModelServerClient> client() const;
};
} // namespace Extractor
