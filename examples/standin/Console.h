#pragma once

#include <signal.h>

#include <string>

// The listening socket on 127.0.0.1:`port`, non-blocking; -1 with errno set
// when it cannot be had.
int openConsoleListener(long port);

// Serves the console page to at most a few clients at a time, each bounded
// in size and time, until `stop` is set; `wakeRead` becomes readable when it
// is. A `listener` of -1 serves nothing and only waits. Requests are logged
// through `log`. Returns 0, or 1 when polling fails.
int serveConsole(int listener, int wakeRead, const volatile sig_atomic_t &stop,
                 void (*log)(const std::string &));
