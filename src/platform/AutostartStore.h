#pragma once

#include <QString>

// The user's store of programs started at logon: one named entry per program, holding the
// program's full path.
class AutostartStore
{
public:
    virtual ~AutostartStore() = default;

    virtual bool contains(const QString& name) const = 0;
    // The stored path, or an empty text when there is no entry.
    virtual QString value(const QString& name) const = 0;
    virtual void setValue(const QString& name, const QString& path) = 0;
    virtual void remove(const QString& name) = 0;
};
