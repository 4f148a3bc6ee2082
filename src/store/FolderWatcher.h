#pragma once

#include <QHash>
#include <QObject>
#include <QString>
#include <QTimer>

#include <functional>
#include <memory>

class QSocketNotifier;

// Reports changes to the PDFs under a folder. Every directory of it is watched with inotify (hidden ones
// and packages aside), new directories as they appear. Events are gathered for 1.5 s from the first one;
// `onChange` is then called once if any of them named a PDF or something without an extension (a folder),
// so that the catalogue's own writes never count. Events are read on the thread that created the watcher.
// If inotify can't be set up (its limits reached), the watcher simply never reports.
class FolderWatcher : public QObject {
public:
    FolderWatcher(const QString &folder, std::function<void()> onChange, QObject *parent = nullptr);
    ~FolderWatcher() override;

    FolderWatcher(const FolderWatcher &) = delete;
    FolderWatcher &operator=(const FolderWatcher &) = delete;

private:
    // Watches `directory` and every directory below it that isn't watched yet.
    void watchTree(const QString &directory);
    void readEvents();
    void endBatch();

    QString folder_;
    std::function<void()> onChange_;
    int fd_ = -1;
    std::unique_ptr<QSocketNotifier> notifier_;
    // The directory of each watch, to give event names their full path.
    QHash<int, QString> directories_;
    QTimer batch_;
    bool batchIsRelevant_ = false;
};
