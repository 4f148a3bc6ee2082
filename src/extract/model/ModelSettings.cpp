#include "extract/model/ModelSettings.h"

#include "extract/model/ModelServerClient.h"

#include <QSettings>

namespace Extractor {
QUrl ModelSettings::serverUrl(const QString &text)
{
    const QString trimmed = text.trimmed();
    return QUrl(trimmed.contains(u"://") ? trimmed : u"http://" + trimmed);
}

std::optional<QString> ModelSettings::serverProblem(const QString &text)
{
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty())
        return std::nullopt;
    const QUrl url = serverUrl(trimmed);
    if (!url.isValid() || trimmed.contains(u' '))
        return u"“" + trimmed + u"” isn't the address of a server";
    if (url.scheme() != u"http" && url.scheme() != u"https")
        return u"A model server is reached over http or https, not “" + url.scheme() + u"”";
    if (url.host().isEmpty())
        return u"“" + trimmed + u"” names no server";
    return std::nullopt;
}

ModelSettings ModelSettings::load()
{
    const QSettings settings;
    ModelSettings result;
    const QString server = settings.value(serverKey).toString().trimmed();
    result.server = serverUrl(server.isEmpty() ? defaultServer : server);
    const QString model = settings.value(modelKey).toString().trimmed();
    result.model = model.isEmpty() ? defaultModel : model;
    bool number = false;
    const qint64 context = settings.value(contextKey).toLongLong(&number);
    result.contextTokens = number && context > 0 ? context : defaultContext;
    return result;
}

ModelSettings ModelSettings::overridden(const std::optional<QString> &server, const std::optional<QString> &model) const
{
    ModelSettings result = *this;
    if (server && !server->trimmed().isEmpty())
        result.server = serverUrl(*server);
    if (model && !model->trimmed().isEmpty())
        result.model = model->trimmed();
    return result;
}

std::unique_ptr<ModelServerClient> ModelSettings::client() const
{
    ModelServerClient::Options options;
    options.server = server;
    options.model = model;
    options.contextTokens = contextTokens;
    return std::make_unique<ModelServerClient>(options);
}
} // namespace Extractor
