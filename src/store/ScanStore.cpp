#include "store/ScanStore.h"

#include "store/Migrations.h"

#include <QDir>

QString idList(const DocumentIDs &ids)
{
    if (ids.empty())
        return QStringLiteral("NULL");
    QString text;
    for (const auto id : ids) {
        if (!text.isEmpty())
            text += QLatin1Char(',');
        text += QString::number(id);
    }
    return text;
}

ScanStore::ScanStore(const QString &folder)
    : folder_(folder)
{
    db_ = std::make_unique<Database>(databasePath());
    db_->execute(QStringLiteral("PRAGMA foreign_keys = ON"));
    Migrations::migrate(*db_);
}

QString ScanStore::databasePath() const
{
    return QDir(folder_).filePath(fileName);
}

int ScanStore::schemaVersion()
{
    return Migrations::storedVersion(*db_);
}
