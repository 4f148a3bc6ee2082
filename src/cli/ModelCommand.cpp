#include "cli/ModelCommand.h"

#include "cli/CliOutput.h"
#include "extract/model/ModelServerClient.h"
#include "extract/model/ModelSettings.h"

#include <QCommandLineParser>
#include <QJsonDocument>
#include <QJsonObject>

int runModelCommand(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Tells whether the local model can be used, and which it is."));
    const QCommandLineOption server(QStringLiteral("model-server"),
        QStringLiteral("The model server for this run (default: the ModelServer setting)."), QStringLiteral("URL"));
    const QCommandLineOption model(QStringLiteral("model"),
        QStringLiteral("The model for this run (default: the ModelName setting)."), QStringLiteral("NAME"));
    const QCommandLineOption json(QStringLiteral("json"), QStringLiteral("Print JSON."));
    parser.addOptions({ server, model, json });
    if (!parser.parse(arguments) || !parser.positionalArguments().isEmpty()) {
        printErr(parser.errorText().isEmpty()
                ? QStringLiteral("Usage: vellumark-cli model [--model-server URL] [--model NAME] [--json]\n")
                : parser.errorText() + QLatin1Char('\n'));
        return ExitStatus::usage;
    }
    const auto option = [&](const QCommandLineOption &given) {
        return parser.isSet(given) ? std::optional(parser.value(given)) : std::nullopt;
    };
    const Extractor::ModelSettings settings
        = Extractor::ModelSettings::load().overridden(option(server), option(model));
    const std::unique_ptr<Extractor::ModelServerClient> client = settings.client();

    const Extractor::Availability availability = client->availability();
    const QString status = availability.available
        ? QStringLiteral("Local model available")
        : QStringLiteral("Local model unavailable: ") + availability.problem.value_or(QString());
    std::optional<qint64> context;
    if (availability.available) {
        try {
            context = client->contextSize();
        } catch (const std::exception &) {
        }
    }
    if (parser.isSet(json)) {
        QJsonObject object { { QStringLiteral("available"), availability.available },
            { QStringLiteral("status"), status }, { QStringLiteral("server"), settings.server.toString() },
            { QStringLiteral("model"), settings.model } };
        if (context)
            object.insert(QStringLiteral("context"), *context);
        printOut(QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact)) + QLatin1Char('\n'));
    } else {
        printOut(status + QLatin1Char('\n'));
        printOut(QStringLiteral("Server: ") + settings.server.toString() + QLatin1Char('\n'));
        printOut(QStringLiteral("Model: ") + settings.model + QLatin1Char('\n'));
        printOut(QStringLiteral("Context: ")
            + (context ? QString::number(*context) + QStringLiteral(" tokens") : QStringLiteral("unknown"))
            + QLatin1Char('\n'));
    }
    return availability.available ? ExitStatus::success : ExitStatus::modelUnavailable;
}
