// Writes the status item's icons for tray hosts that prefer an icon by name.
// Usage: corvanta_status_icons DIRECTORY
#include "StatusIcon.h"

#include <QGuiApplication>

#include <cstdio>

int main(int argc, char **argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QGuiApplication application(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: corvanta_status_icons DIRECTORY\n");
        return 2;
    }
    constexpr int size = 64;  // hosts scale it to their panel
    if (!writeStatusIcons(QString::fromLocal8Bit(argv[1]), size)) {
        std::fprintf(stderr, "corvanta_status_icons: cannot write into %s\n", argv[1]);
        return 1;
    }
    return 0;
}
