#pragma once

#include <QObject>

#include <utility>

// Sets a field and announces it with the change signal, only when the value changes.
template <typename T, typename Object> void assign(T &field, T value, Object *object, void (Object::*changed)())
{
    if (field == value)
        return;
    field = std::move(value);
    Q_EMIT(object->*changed)();
}
