#pragma once

#include <QAbstractItemModelTester>
#include <QByteArrayView>

#include <gtest/gtest.h>

#include <cstdio>

// Qt's model checker watching a model for as long as the test runs; every rule the model breaks (an
// index out of range, a change announced wrongly) fails the test.
class ModelChecker {
public:
    explicit ModelChecker(QAbstractItemModel *model)
        : previous_(qInstallMessageHandler(&ModelChecker::report))
        , tester_(model, QAbstractItemModelTester::FailureReportingMode::Warning)
    {
    }
    ~ModelChecker() { qInstallMessageHandler(previous_); }

private:
    static void report(QtMsgType, const QMessageLogContext &context, const QString &message)
    {
        if (QByteArrayView(context.category) == QByteArrayView("qt.modeltest"))
            ADD_FAILURE() << message.toStdString();
        else
            std::fprintf(stderr, "%s\n", message.toLocal8Bit().constData());
    }

    QtMessageHandler previous_;
    QAbstractItemModelTester tester_;
};
