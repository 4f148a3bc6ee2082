// The Debian package CPack makes from the build: its file name, files, declared dependencies, and what
// lintian says of it.
#include <QDir>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <map>
#include <set>

#include "install/Installed.h"

namespace {

using namespace Qt::StringLiterals;

// The package, made in a scratch folder of its own.
class Package : public ::testing::Test {
protected:
    void SetUp() override
    {
        const ToolRun cpack = runTool(QStringLiteral(CPACK_COMMAND),
            { u"-G"_s, u"DEB"_s, u"--config"_s, QStringLiteral(BUILD_DIR "/CPackConfig.cmake"), u"-B"_s,
                scratch.path() });
        ASSERT_EQ(cpack.exitCode, 0) << QString(cpack.out + cpack.err).toStdString();
        const QString architecture = runTool(u"dpkg"_s, { u"--print-architecture"_s }).out.trimmed();
        deb = scratch.filePath(u"vellumark_"_s + QStringLiteral(VELLUMARK_VERSION) + u"_"_s + architecture + u".deb"_s);
        ASSERT_TRUE(QFile::exists(deb)) << deb.toStdString();
    }

    QString field(const QString &name) const
    {
        return runTool(u"dpkg-deb"_s, { u"--field"_s, deb, name }).out.trimmed();
    }

    // The names of the packages in a relationship field, alternatives included, without versions.
    std::set<QString> packagesIn(const QString &name) const
    {
        std::set<QString> packages;
        for (const QString &alternative : field(name).split(QRegularExpression(u"[,|]"_s), Qt::SkipEmptyParts))
            packages.insert(alternative.section(u'(', 0, 0).trimmed());
        return packages;
    }

    QTemporaryDir scratch;
    QString deb;
};

TEST_F(Package, holdsThePrograms_theirPagesAndTheServiceUnderUsrAndNothingElse)
{
    QStringList files;
    for (const QString &line : runTool(u"dpkg-deb"_s, { u"--contents"_s, deb }).out.split(u'\n', Qt::SkipEmptyParts))
        if (!line.startsWith(u'd'))
            files << line.section(u' ', -1);
    files.sort();
    const QStringList expected { u"./usr/bin/vellumark"_s, u"./usr/bin/vellumark-cli"_s,
        u"./usr/lib/systemd/user/vellumark-watch.service"_s, u"./usr/libexec/vellumark/vellumark-reader"_s,
        u"./usr/share/applications/org.vellumark.Vellumark.desktop"_s,
        u"./usr/share/bash-completion/completions/vellumark-cli"_s, u"./usr/share/doc/vellumark/changelog.gz"_s,
        u"./usr/share/doc/vellumark/copyright"_s,
        u"./usr/share/icons/hicolor/scalable/apps/org.vellumark.Vellumark.svg"_s,
        u"./usr/share/man/man1/vellumark-cli.1.gz"_s, u"./usr/share/man/man1/vellumark.1.gz"_s,
        u"./usr/share/metainfo/org.vellumark.Vellumark.metainfo.xml"_s };
    EXPECT_EQ(files, expected);

    // The service starts the CLI where the package puts it, not where the build would have installed it.
    QTemporaryDir unpacked;
    ASSERT_EQ(runTool(u"dpkg-deb"_s, { u"--extract"_s, deb, unpacked.path() }).exitCode, 0);
    QFile unit(unpacked.filePath(u"usr/lib/systemd/user/vellumark-watch.service"_s));
    ASSERT_TRUE(unit.open(QIODevice::ReadOnly));
    EXPECT_TRUE(unit.readAll().contains("\nExecStart=/usr/bin/vellumark-cli process --watch\n"));
}

// Every library the programs link is declared, so that `apt install` brings it, and so are the data
// read at run time: English recognition data and dictionary, and Qt's SVG plugins for the icons.
TEST_F(Package, dependsOnEveryLibraryItsProgramsLinkAndOnTheEnglishData)
{
    EXPECT_EQ(field(u"Package"_s), u"vellumark"_s);
    EXPECT_EQ(field(u"Version"_s), QStringLiteral(VELLUMARK_VERSION));
    EXPECT_FALSE(field(u"Description"_s).isEmpty());
    const std::set<QString> depends = packagesIn(u"Depends"_s);
    for (const QString &needed : { u"tesseract-ocr-eng"_s, u"hunspell-en-us"_s, u"libqt6svg6"_s })
        EXPECT_TRUE(depends.contains(needed)) << needed.toStdString();

    // Each library the programs name, where the loader finds it.
    std::map<QString, QString> libraries;
    for (const QString &program : { u"vellumark"_s, u"vellumark-cli"_s, u"vellumark-reader"_s }) {
        const QString path = QStringLiteral(BUILD_DIR "/bin/") + program;
        const ToolRun dynamic = runTool(u"readelf"_s, { u"--dynamic"_s, path });
        const QString loaded = runTool(u"ldd"_s, { path }).out;
        for (const QRegularExpressionMatch &match :
            QRegularExpression(u"\\(NEEDED\\).*\\[(.+)\\]"_s).globalMatch(dynamic.out)) {
            const QString name = match.captured(1);
            libraries[name] = QRegularExpression(u"(/\\S*/"_s + QRegularExpression::escape(name) + u")"_s)
                                  .match(loaded)
                                  .captured(1);
        }
    }
    ASSERT_GE(libraries.size(), 10u);
    // dpkg answers "package:arch: /lib/x86_64-linux-gnu/libx.so.1" for each file; the folder tells apart the
    // package of another architecture with a file of the same name.
    QStringList patterns;
    for (const auto &[library, path] : libraries)
        patterns << u"*/"_s + path.section(u'/', -2);
    const QStringList owners = runTool(u"dpkg"_s, QStringList { u"--search"_s } + patterns).out.split(u'\n');
    for (const auto &[library, path] : libraries) {
        const QString file = u'/' + path.section(u'/', -2);
        const auto owner
            = std::find_if(owners.begin(), owners.end(), [&file](const QString &line) { return line.endsWith(file); });
        ASSERT_NE(owner, owners.end()) << library.toStdString();
        const QString package = owner->section(u": "_s, 0, 0).section(u',', 0, 0).section(u':', 0, 0);
        EXPECT_TRUE(depends.contains(package)) << library.toStdString() << " comes from " << package.toStdString();
    }
}

TEST_F(Package, passesLintianWithoutErrors)
{
    const ToolRun lintian = runTool(QStringLiteral(LINTIAN), { u"--fail-on"_s, u"error"_s, deb });
    EXPECT_EQ(lintian.exitCode, 0) << lintian.out.toStdString();
    EXPECT_FALSE(lintian.out.contains(QRegularExpression(u"^E: "_s, QRegularExpression::MultilineOption)))
        << lintian.out.toStdString();
}

} // namespace
