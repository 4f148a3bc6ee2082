#pragma once

#include <QObject>

#include <memory>

class Library;
class MainWindow;
class UpdateCheck;

// The desktop app: the one Library every window shares, and the windows over it. Closing the main window
// ends the app; the folder stays open until then.
class VellumarkApp : public QObject {
    Q_OBJECT
public:
    explicit VellumarkApp(QObject *parent = nullptr);
    ~VellumarkApp() override;

    Library &library() { return *library_; }
    MainWindow &mainWindow() { return *window_; }

    // Shows the main window on `folder`, or on the remembered folder when none is given.
    void start(const QString &folder = {});

private:
    std::unique_ptr<Library> library_;
    std::unique_ptr<UpdateCheck> updates_;
    std::unique_ptr<MainWindow> window_;
};
