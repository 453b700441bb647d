#include "TrayLoader.h"

#include "TrayEntry.h"
#include "cli/Output.h"
#include "platform/Translations.h"

#include <QCoreApplication>

#include <dlfcn.h>
#include <limits.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

struct TrayModule {
    Q_DECLARE_TR_FUNCTIONS(TrayModule)

public:
    // The module's path: the executable's own directory (from the kernel, so
    // that a relative argv[0] or PATH lookup does not matter) plus the
    // configured relative directory, laid out alike in the build tree and
    // when installed. Empty, with `error` set, when /proc is not readable.
    static QByteArray path(QByteArray &error) {
        char exe[PATH_MAX];
        const ssize_t length = ::readlink("/proc/self/exe", exe, sizeof exe);
        if (length <= 0 || size_t(length) >= sizeof exe) {
            error = length < 0 ? QByteArray(std::strerror(errno)) : QByteArray("path too long");
            return QByteArrayLiteral(CORVANTA_TRAY_MODULE_DIR "/") + kCorvantaTrayModuleName;
        }
        QByteArray directory(exe, length);
        directory.truncate(directory.lastIndexOf('/') + 1);
        return directory + CORVANTA_TRAY_MODULE_DIR "/" + kCorvantaTrayModuleName;
    }

    static int loadFailed(int &argc, char **argv, const QByteArray &path, const QByteArray &why) {
        QCoreApplication app(argc, argv);
        installTranslations(app);
        printError(tr("cannot load the tray module %1: %2")
                       .arg(QString::fromLocal8Bit(path), QString::fromLocal8Bit(why)));
        return ExitFailure;
    }
};

}  // namespace

int runTrayModule(int &argc, char **argv, const std::optional<QString> &home) {
    QByteArray error;
    const QByteArray path = TrayModule::path(error);
    if (!error.isEmpty()) {
        return TrayModule::loadFailed(argc, argv, path, error);
    }
    // Never unloaded: the tray's objects live until the process exits.
    void *module = ::dlopen(path.constData(), RTLD_NOW | RTLD_LOCAL);
    const auto run =
        module != nullptr
            ? reinterpret_cast<CorvantaRunTray>(::dlsym(module, kCorvantaRunTraySymbol))
            : nullptr;
    if (run == nullptr) {
        return TrayModule::loadFailed(argc, argv, path, ::dlerror());
    }
    const QByteArray homeUtf8 = home ? home->toUtf8() : QByteArray();
    return run(&argc, argv, home ? homeUtf8.constData() : nullptr);
}
