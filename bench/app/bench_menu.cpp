// Time from a click on the tray icon to the menu on screen, with 1,000
// instances, beside a bare QMenu with 1,000 plain items shown the same way.
// The click rescans the installation and rebuilds the menu, as every opening
// does; the bare menu is likewise filled afresh at each opening.

#include "app/Application.h"
#include "app/MenuPlacement.h"
#include "registry/CorvantaManager.h"
#include "registry/SystemLog.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QMenu>
#include <QStyle>
#include <QTemporaryDir>
#include <QWidget>
#include <QWindow>

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>

namespace {

constexpr int kItems = 1000;

struct NoDesktop : DesktopOpener, LoginItemList, ConfirmationPrompt {
    bool openUrl(const QUrl &) override { return true; }
    bool openFile(const QString &) override { return true; }
    std::optional<QList<LoginItem>> snapshot() override { return QList<LoginItem>(); }
    bool insertFirst(const QUrl &, const QStringList &) override { return true; }
    bool remove(const LoginItem &) override { return true; }
    int runModal(const QString &, const QString &, const QString &, const QString &) override {
        return 0;
    }
};

// Shown: mapped and exposed, as far as the platform reports it; bounded.
bool waitUntil(const std::function<bool()> &done) {
    QElapsedTimer clock;
    clock.start();
    while (!done()) {
        if (clock.elapsed() > 10000) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }
    return true;
}

bool exposed(QMenu *menu) {
    return menu->isVisible() && menu->windowHandle() && menu->windowHandle()->isExposed();
}

// Stands for the rest of the desktop: the window that has the focus when the
// icon is clicked. A hidden popup otherwise keeps the focus it took (offscreen)
// or loses it only when the platform's deferred focus-out fires (xcb, some
// 400 ms later), which deactivates the application and closes whichever menu
// is open by then: the next opening would be closed under its own timing.
// Made in main, beside the application object.
QWidget *desktopWindow = nullptr;

// Until the desktop window is active again; every opening starts from there.
bool focusDesktop() {
    QWidget &window = *desktopWindow;
    window.activateWindow();
    return waitUntil([&] {
        return window.windowHandle() && QGuiApplication::focusWindow() == window.windowHandle();
    });
}

// Times `open` until `menu` is exposed, then closes it outside the timing.
void timeOpening(benchmark::State &state, QMenu *&menu, const std::function<void()> &open) {
    for (auto _ : state) {
        if (!focusDesktop()) {
            state.SkipWithError("the desktop window did not take the focus");
            return;
        }
        const auto start = std::chrono::steady_clock::now();
        open();
        if (!waitUntil([&] { return menu && exposed(menu); })) {
            state.SkipWithError("the menu did not show");
            return;
        }
        const auto end = std::chrono::steady_clock::now();
        state.SetIterationTime(std::chrono::duration<double>(end - start).count());
        menu->hide();
        // Until the platform has taken the window down, or the next opening
        // would find it exposed from this one.
        if (!waitUntil([&] { return !menu->isVisible() && !menu->windowHandle()->isExposed(); })) {
            state.SkipWithError("the menu did not close");
            return;
        }
    }
}

}  // namespace

// A friend of Application: clicks the icon as the tray would.
struct ApplicationProbe {
    static QMenu *menu(Application &app) { return app._menu.get(); }
    static void click(Application &app) { app.statusItemActivated(QSystemTrayIcon::Trigger); }
};

namespace {

// An installation of kItems stopped instances.
bool makeInstallation(const QTemporaryDir &home) {
    for (int i = 0; i < kItems; ++i) {
        const QString dir =
            home.path() + QStringLiteral("/instance%1").arg(i, 4, 10, QLatin1Char('0'));
        QDir().mkpath(dir);
        QFile ini(dir + QStringLiteral("/corvanta.ini"));
        if (!ini.open(QIODevice::WriteOnly) || ini.write("[database]\n") < 0) {
            return false;
        }
    }
    return true;
}

// The rescan every opening does before the menu changes, on its own.
void BM_Rescan(benchmark::State &state) {
    QTemporaryDir home;
    if (!makeInstallation(home)) {
        state.SkipWithError("cannot write the installation");
        return;
    }
    CorvantaManager manager;
    manager.addSearchPath(home.path());
    manager.allInstances();
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        benchmark::DoNotOptimize(manager.allInstances());
        state.SetIterationTime(
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
}

void BM_TrayMenu(benchmark::State &state) {
    QTemporaryDir home;
    if (!makeInstallation(home)) {
        state.SkipWithError("cannot write the installation");
        return;
    }
    qputenv("CORVANTA_HOME", home.path().toLocal8Bit());
    NoDesktop desktop;
    Application app(desktop, desktop, desktop);
    app.applicationDidFinishLaunching();
    QMenu *menu = ApplicationProbe::menu(app);
    timeOpening(state, menu, [&] { ApplicationProbe::click(app); });
    if (menu->actions().size() < kItems) {
        state.SkipWithError("the menu does not list every instance");
    }
}

void fillBare(QMenu &bare) {
    for (int i = 0; i < kItems; ++i) {
        bare.addAction(
            QStringLiteral("Start Instance 'instance%1'").arg(i, 4, 10, QLatin1Char('0')));
    }
}

// The bare menus scroll as the tray menu does: a plain QMenu would lay its
// items out in columns and paint several times as many of them.
std::unique_ptr<QStyle> bareStyle;

// The baseline: emptied and filled afresh at each opening, as the tray menu is.
void BM_BareMenu(benchmark::State &state) {
    QMenu bare;
    bare.setStyle(bareStyle.get());
    QMenu *menu = &bare;
    timeOpening(state, menu, [&] {
        bare.clear();
        fillBare(bare);
        bare.popup(QPoint(0, 0));
    });
}

// For reference only: filled once and merely shown again; Qt keeps the layout
// of an unchanged menu, so this is the cost of showing alone.
void BM_BareMenuShownOnly(benchmark::State &state) {
    QMenu bare;
    bare.setStyle(bareStyle.get());
    fillBare(bare);
    QMenu *menu = &bare;
    timeOpening(state, menu, [&] { bare.popup(QPoint(0, 0)); });
}

BENCHMARK(BM_TrayMenu)->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_BareMenu)->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_BareMenuShownOnly)->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_Rescan)->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(2.0);

class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run> &runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run &run : runs) {
            if (run.run_type == Run::RT_Iteration && run.iterations > 0 && !run.error_occurred) {
                times[run.run_name.function_name] =
                    run.real_accumulated_time / double(run.iterations);
            }
        }
    }
    std::map<std::string, double> times;
};

}  // namespace

int main(int argc, char **argv) {
    setSystemLogSink([](const QString &) {});
    QApplication qapp(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    QWidget desktop;
    desktop.setGeometry(0, 0, 64, 64);
    desktop.show();
    desktopWindow = &desktop;
    bareStyle.reset(makeScrollableMenuStyle());
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const auto time = [&](const char *name) {
        const auto found = reporter.times.find(name);
        return found == reporter.times.end() ? 0.0 : found->second;
    };
    const double ours = time("BM_TrayMenu");
    const double bare = time("BM_BareMenu");
    const double shownOnly = time("BM_BareMenuShownOnly");
    const double rescan = time("BM_Rescan");
    if (ours > 0 && bare > 0 && rescan > 0) {
        std::printf(
            "\nplatform %s: click to shown %.2f ms (of which rescan %.2f ms), "
            "bare QMenu filled and shown %.2f ms\nratio %.2fx; without the rescan %.2fx\n",
            qPrintable(QGuiApplication::platformName()), ours * 1e3, rescan * 1e3, bare * 1e3,
            ours / bare, (ours - rescan) / bare);
    }
    if (ours > 0 && shownOnly > 0) {
        std::printf("bare QMenu shown only %.2f ms: ratio %.2fx\n", shownOnly * 1e3,
                    ours / shownOnly);
    }
    bareStyle.reset();
    benchmark::Shutdown();
    return 0;
}
