#include "library/ModelWatch.h"

#include "core/Error.h"
#include "extract/model/ModelServerClient.h"
#include "extract/model/ModelSettings.h"

#include <QCoro/QCoroTimer>
#include <QPointer>
#include <QTimer>

using Extractor::Availability;

QCoro::Task<bool> waitUnlessStopped(std::chrono::milliseconds duration, std::stop_token stop)
{
    QTimer timer;
    timer.setSingleShot(true);
    timer.setInterval(duration);
    // Stops are requested on this thread, but the wake-up is queued so it never runs inside request_stop.
    const std::stop_callback wake(stop, [&timer] {
        QMetaObject::invokeMethod(
            &timer,
            [&timer] {
                timer.setInterval(0);
                timer.start();
            },
            Qt::QueuedConnection);
    });
    timer.start();
    co_await timer;
    co_return !stop.stop_requested();
}

void reportEscaped(ActivityLog &activity, const QString &work)
{
    QString message;
    try {
        throw;
    } catch (const std::exception &error) {
        message = messageOf(error);
    } catch (...) {
        message = QStringLiteral("An unknown error");
    }
    ActivityEntry entry;
    entry.title = work + QStringLiteral(" stopped");
    entry.outcome = message;
    activity.append(std::move(entry));
}

ModelWatch::ModelWatch(ActivityLog &activity, std::chrono::milliseconds poll, QObject *parent)
    : QObject(parent)
    , activity_(activity)
    , poll_(poll)
{
}

ModelWatch::~ModelWatch()
{
    stopWatch();
}

std::shared_ptr<Extractor::LanguageModel> ModelWatch::model()
{
    if (!model_)
        model_ = std::shared_ptr<Extractor::LanguageModel>(Extractor::ModelSettings::load().client());
    return model_;
}

void ModelWatch::setLanguageModel(std::shared_ptr<Extractor::LanguageModel> model)
{
    model_ = std::move(model);
    ++generation_;
    checked_ = false;
    stopWatch();
    Q_EMIT modelChanged();
}

QCoro::Task<std::optional<Availability>> ModelWatch::check()
{
    QPointer<ModelWatch> self(this);
    const int generation = generation_;
    const std::shared_ptr<Extractor::LanguageModel> asked = model();
    Availability availability;
    try {
        availability = co_await thread_.run([asked] { return asked->availability(); });
    } catch (const std::exception &error) {
        availability = { false, messageOf(error) };
    }
    if (!self || generation_ != generation)
        co_return std::nullopt;
    checked_ = true;
    apply(availability);
    co_return availability;
}

void ModelWatch::apply(const Availability &availability)
{
    std::optional<QString> problem;
    if (!availability.available)
        problem = availability.problem.value_or(QStringLiteral("The local model is unavailable"));
    if (problem == problem_)
        return;
    ActivityEntry entry;
    entry.title
        = problem ? QStringLiteral("Local model unavailable: ") + *problem : QStringLiteral("Local model available");
    activity_.append(std::move(entry));
    problem_ = std::move(problem);
    Q_EMIT problemChanged();
}

void ModelWatch::startWatch()
{
    if (watch_)
        return;
    std::stop_source stop;
    watch_ = stop;
    watch(stop.get_token());
}

void ModelWatch::stopWatch()
{
    if (watch_)
        watch_->request_stop();
    watch_.reset();
}

void ModelWatch::reset()
{
    stopWatch();
    checked_ = false;
}

QCoro::Task<> ModelWatch::watch(std::stop_token stop)
{
    QPointer<ModelWatch> self(this);
    try {
        const std::shared_ptr<Extractor::LanguageModel> watched = model();
        while (true) {
            if (!co_await waitUnlessStopped(poll_, stop) || !self)
                co_return;
            Availability availability;
            try {
                availability = co_await thread_.run([watched, stop] { return watched->availability(stop); });
            } catch (const std::exception &) {
                availability = {};
            }
            if (!self || stop.stop_requested())
                co_return;
            if (availability.available)
                break;
        }
        watch_.reset();
        Q_EMIT available();
    } catch (...) {
        if (self && !stop.stop_requested()) {
            watch_.reset();
            reportEscaped(activity_, QStringLiteral("Watching the local model"));
        }
    }
}
