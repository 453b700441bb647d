#pragma once

#include "Commands.h"

// `watch`: the state of every instance (or of the one named) once, then a
// line per change until a termination signal or a closed standard output,
// keeping a metrics file current when asked. Learns of changes from the
// kernel only. Needs a QCoreApplication; answers the exit status.
int runWatch(const CommandRequest &request, const QString &home);
