#include "ui/VellumarkApp.h"

#include "library/Library.h"

VellumarkApp::VellumarkApp(QObject *parent)
    : QObject(parent)
    , library_(std::make_unique<Library>())
{
}

VellumarkApp::~VellumarkApp() = default;

void VellumarkApp::start(const QString &folder)
{
    if (folder.isEmpty())
        library_->restore();
    else
        library_->open(folder, true);
}
