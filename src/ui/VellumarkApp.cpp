#include "ui/VellumarkApp.h"

#include "library/Library.h"
#include "ui/MainWindow.h"
#include "ui/UpdateCheck.h"

VellumarkApp::VellumarkApp(QObject *parent)
    : QObject(parent)
    , library_(std::make_unique<Library>())
    , updates_(std::make_unique<UpdateCheck>())
    , window_(std::make_unique<MainWindow>(*library_, Prompts::interactive(), *updates_))
{
}

VellumarkApp::~VellumarkApp() = default;

void VellumarkApp::start(const QString &folder)
{
    window_->show();
    if (folder.isEmpty())
        library_->restore();
    else
        library_->open(folder, true);
}
