// The manual pages and the bash completion against the programs' own --help: every command and option
// a program accepts is in its page and offered by the completion, where it fits.
#include <QDir>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <set>

#include "install/Installed.h"

namespace {

using namespace Qt::StringLiterals;

struct HelpCommand {
    QString name;
    QStringList options;
};

QStringList optionsIn(const QString &text)
{
    QStringList options;
    for (const QRegularExpressionMatch &match : QRegularExpression(u"(?<![\\w-])--?[a-z][a-z-]*"_s).globalMatch(text))
        if (!options.contains(match.captured()))
            options << match.captured();
    return options;
}

// The commands of `vellumark-cli --help`, each with the options named from its line to the next command's.
std::vector<HelpCommand> commandsOfHelp()
{
    const ToolRun help = runTool(QStringLiteral(VELLUMARK_CLI), { u"--help"_s });
    const QString section = help.out.section(u"Commands:\n"_s, 1).section(u"\n\n"_s, 0, 0);
    std::vector<HelpCommand> commands;
    for (const QString &line : section.split(u'\n')) {
        if (const QRegularExpressionMatch start = QRegularExpression(u"^  ([a-z][a-z-]*)"_s).match(line);
            start.hasMatch())
            commands.push_back({ start.captured(1), {} });
        if (!commands.empty())
            for (const QString &option : optionsIn(line))
                if (!commands.back().options.contains(option))
                    commands.back().options << option;
    }
    return commands;
}

// The page as `man` shows it, in lines too wide to wrap; fails on anything groff warns about.
QString renderedPage(const QString &name)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"MANWIDTH"_s, u"400"_s);
    environment.insert(u"LC_ALL"_s, u"C"_s);
    const ToolRun man = runTool(QStringLiteral(MAN),
        { u"--warnings"_s, u"-l"_s, QDir(QStringLiteral(DOCS_DIR)).filePath(name + u".1.gz"_s) }, environment);
    EXPECT_EQ(man.exitCode, 0);
    EXPECT_EQ(man.err, QString()) << name.toStdString();
    return man.out;
}

// What the completion offers for the words typed so far, the last being the one completed.
QStringList completions(const QStringList &words, const QString &directory = QDir::currentPath())
{
    QProcess bash;
    bash.setWorkingDirectory(directory);
    bash.start(QStringLiteral(BASH),
        QStringList { u"-c"_s,
            u"source \"$1\"; shift; COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1)); _vellumark_cli 2>/dev/null; "
            "printf '%s\\n' \"${COMPREPLY[@]}\""_s,
            u"bash"_s, QDir(QStringLiteral(DOCS_DIR)).filePath(u"vellumark-cli.bash"_s), u"vellumark-cli"_s }
            + words);
    bash.waitForFinished();
    QStringList offered = QString::fromUtf8(bash.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
    offered.sort();
    return offered;
}

TEST(HelpDocs, theCliPageHasEveryCommandWithItsOptions)
{
    const std::vector<HelpCommand> commands = commandsOfHelp();
    ASSERT_GE(commands.size(), 10u);
    const QString page = renderedPage(u"vellumark-cli"_s);
    // Each command starts an entry at the first indent; its options follow before the next entry.
    const QStringList entries = page.section(u"\nCOMMANDS\n"_s, 1).split(QRegularExpression(u"\n(?= {7}\\S)"_s));
    for (const HelpCommand &command : commands) {
        const auto entry = std::find_if(entries.begin(), entries.end(),
            [&](const QString &text) { return text.trimmed().section(u' ', 0, 0) == command.name; });
        ASSERT_NE(entry, entries.end()) << command.name.toStdString();
        for (const QString &option : command.options)
            EXPECT_TRUE(entry->contains(option)) << command.name.toStdString() << " " << option.toStdString();
    }
    EXPECT_TRUE(page.contains(u"\nEXIT STATUS\n"_s));
    const ToolRun help = runTool(QStringLiteral(VELLUMARK_CLI), { u"--help"_s });
    const ToolRun commandHelp = runTool(QStringLiteral(VELLUMARK_CLI), { u"process"_s, u"--help"_s });
    EXPECT_EQ(commandHelp.exitCode, 0);
    EXPECT_EQ(commandHelp.out, help.out);
}

TEST(HelpDocs, theAppPageHasEveryOptionOfItsHelp)
{
    const ToolRun help = runTool(QStringLiteral(VELLUMARK_APP), { u"--help"_s });
    ASSERT_EQ(help.exitCode, 0) << help.err.toStdString();
    const QStringList options = optionsIn(help.out.section(u"Options:\n"_s, 1));
    ASSERT_TRUE(options.contains(u"--version"_s)) << help.out.toStdString();
    const QString page = renderedPage(u"vellumark"_s);
    for (const QString &option : options)
        EXPECT_TRUE(page.contains(option)) << option.toStdString();
}

TEST(HelpDocs, theCompletionOffersEveryCommandAndEachCommandsOwnOptions)
{
    const std::vector<HelpCommand> commands = commandsOfHelp();
    const QStringList names = completions({ QString() });
    for (const HelpCommand &command : commands) {
        EXPECT_TRUE(names.contains(command.name)) << command.name.toStdString();
        const QStringList offered = completions({ command.name, u"--"_s });
        for (const QString &option : command.options)
            EXPECT_TRUE(offered.contains(option)) << command.name.toStdString() << " " << option.toStdString();
        // Only its own: `model --json` is offered, `model --watch` is not.
        for (const QString &option : offered)
            EXPECT_TRUE(command.options.contains(option)) << command.name.toStdString() << " " << option.toStdString();
    }
}

TEST(HelpDocs, theCompletionOffersFoldersPdfsAndChoicesWhereEachFits)
{
    QTemporaryDir directory;
    ASSERT_TRUE(QDir(directory.path()).mkdir(u"Scans"_s));
    for (const QString &name : { u"letter.pdf"_s, u"notes.txt"_s }) {
        QFile file(directory.filePath(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    }
    const QString here = directory.path();
    EXPECT_EQ(completions({ u"status"_s, QString() }, here), QStringList { u"Scans"_s });
    EXPECT_EQ(completions({ u"read"_s, QString() }, here), (QStringList { u"Scans"_s, u"letter.pdf"_s }));
    EXPECT_EQ(completions({ u"show"_s, u"Scans"_s, QString() }, here),
        (QStringList { u"Scans"_s, u"letter.pdf"_s, u"notes.txt"_s }));
    EXPECT_EQ(completions({ u"list"_s, u"Scans"_s, u"--view"_s, u"p"_s }, here),
        (QStringList { u"problems"_s, u"processing"_s }));
    // A value that can't be guessed gets nothing, not the files that happen to be there.
    EXPECT_EQ(completions({ u"process"_s, u"--model"_s, QString() }, here), QStringList());
    EXPECT_EQ(completions({ u"process"_s, u"--model"_s, u"qwen"_s, QString() }, here), QStringList { u"Scans"_s });
}

} // namespace
