#pragma once

#include "registry/CorvantaInstance.h"

#include <QCoreApplication>
#include <QList>
#include <QString>

// Which listed instance a command-line INSTANCE names: "default" (also when
// it is empty) is the one the menu treats as default; otherwise a directory
// name as listed, else a path (absolute, or relative to the working
// directory) whose real path is that of a listed directory.
struct InstanceLookup {
    Q_DECLARE_TR_FUNCTIONS(InstanceLookup)

public:
    CorvantaInstancePtr instance;
    QString error;  // why none was found, one line

    static InstanceLookup find(const QList<CorvantaInstancePtr> &instances,
                               const QString &argument);
};
