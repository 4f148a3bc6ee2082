#pragma once

#include <QByteArray>
#include <QString>

#include <exception>

// The base of every failure that a person is told about: it carries the message as they read it.
class Error : public std::exception {
public:
    explicit Error(QString message)
        : message_(std::move(message))
        , utf8_(message_.toUtf8())
    {
    }
    const QString &message() const { return message_; }
    const char *what() const noexcept override { return utf8_.constData(); }

private:
    QString message_;
    QByteArray utf8_;
};

// The message of any exception: an Error's own, else what() read as UTF-8.
inline QString messageOf(const std::exception &error)
{
    if (const auto *known = dynamic_cast<const Error *>(&error))
        return known->message();
    return QString::fromUtf8(error.what());
}
