#pragma once

#include <QObject>

#include <memory>

class Library;
class MainWindow;

// The desktop app: the one Library every window shares, and the windows over it.
class VellumarkApp : public QObject {
    Q_OBJECT
public:
    explicit VellumarkApp(QObject *parent = nullptr);
    ~VellumarkApp() override;

    Library &library() { return *library_; }

    // Shows the main window on `folder`, or on the remembered folder when none is given.
    void start(const QString &folder = {});

private:
    std::unique_ptr<Library> library_;
};
