// Time from a click on the tray icon to the menu on screen, with 1,000
// instances, beside a bare QMenu with 1,000 plain items shown the same way,
// the two taking turns in one run. The click rescans the installation and
// rebuilds the menu, as every opening does; the bare menu is likewise filled
// afresh at each opening.

#include "app/tray/Application.h"
#include "app/tray/MenuPlacement.h"
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

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace {

constexpr int kItems = 1000;

struct NoDesktop : DesktopOpener, LoginItemList, ConfirmationPrompt {
    bool openUrl(const QUrl &) override { return true; }
    bool openFile(const QString &) override { return true; }
    std::optional<QList<LoginItem>> snapshot() override { return QList<LoginItem>(); }
    bool insertFirst(const QUrl &, const QStringList &) override { return true; }
    bool remove(const LoginItem &) override { return true; }
    bool confirm(const QString &, const QString &, const QString &, const QString &) override {
        return false;
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

// One opening: from `open` until `menu` is exposed, in seconds; the menu is
// closed again outside the timing. Empty, with `failure` set, when a state
// was not reached.
std::optional<double> timeOpening(QMenu *menu, const std::function<void()> &open,
                                  const char **failure) {
    if (!focusDesktop()) {
        *failure = "the desktop window did not take the focus";
        return std::nullopt;
    }
    const auto start = std::chrono::steady_clock::now();
    open();
    if (!waitUntil([&] { return exposed(menu); })) {
        *failure = "the menu did not show";
        return std::nullopt;
    }
    const auto end = std::chrono::steady_clock::now();
    menu->hide();
    // Until the platform has taken the window down, or the next opening
    // would find it exposed from this one.
    if (!waitUntil([&] { return !menu->isVisible() && !menu->windowHandle()->isExposed(); })) {
        *failure = "the menu did not close";
        return std::nullopt;
    }
    return std::chrono::duration<double>(end - start).count();
}

double median(std::vector<double> values) {
    if (values.empty()) {
        return 0;
    }
    const auto middle = values.begin() + values.size() / 2;
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

}  // namespace

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

// An installation of kItems instances, listed once by its manager.
struct ListedInstallation {
    QTemporaryDir home;
    bool written = makeInstallation(home);
    CorvantaManager manager;
    QList<CorvantaInstancePtr> instances;

    ListedInstallation() {
        manager.addSearchPath(home.path());
        instances = manager.allInstances();
    }
};

// Times `step` on a listed installation of kItems instances, per iteration.
void timeOnListed(benchmark::State &state, const std::function<void(ListedInstallation &)> &step) {
    ListedInstallation listed;
    if (!listed.written) {
        state.SkipWithError("cannot write the installation");
        return;
    }
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        step(listed);
        state.SetIterationTime(
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
}

// The rescan every opening does before the menu changes, on its own.
void BM_Rescan(benchmark::State &state) {
    timeOnListed(state, [](ListedInstallation &listed) {
        benchmark::DoNotOptimize(listed.manager.allInstances());
    });
}

// The permission test each Start or Stop item needs, on its own: one
// access() per instance, on one thread.
void BM_PermissionTests(benchmark::State &state) {
    timeOnListed(state, [](ListedInstallation &listed) {
        int permitted = 0;
        for (const CorvantaInstancePtr &instance : std::as_const(listed.instances)) {
            permitted += instance->canStart() ? 1 : 0;
        }
        benchmark::DoNotOptimize(permitted);
    });
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

// A click on the icon and the baseline, a bare menu emptied and filled afresh
// at each opening as the tray menu is, take turns, first one and then the
// other leading, so that both see the same load on a shared machine. The
// counters are the medians of each and their ratio.
void BM_TrayMenuBesideBareMenu(benchmark::State &state) {
    QTemporaryDir home;
    if (!makeInstallation(home)) {
        state.SkipWithError("cannot write the installation");
        return;
    }
    qputenv("CORVANTA_HOME", home.path().toLocal8Bit());
    NoDesktop desktop;
    Application app(desktop, desktop, desktop);
    app.start();
    QMenu *tray = &app.menu().menu();
    QMenu bare;
    bare.setStyle(bareStyle.get());
    // A click on the icon as an XEmbed tray reports it.
    const auto click = [&] { app.iconClicked({}, u"xcb"); };
    const auto fillAndShow = [&] {
        bare.clear();
        fillBare(bare);
        bare.popup(QPoint(0, 0));
    };
    std::vector<double> trayTimes, bareTimes;
    bool trayFirst = true;
    for (auto _ : state) {
        const char *failure = nullptr;
        std::optional<double> trayTime, bareTime;
        if (trayFirst) {
            trayTime = timeOpening(tray, click, &failure);
            bareTime = trayTime ? timeOpening(&bare, fillAndShow, &failure) : std::nullopt;
        } else {
            bareTime = timeOpening(&bare, fillAndShow, &failure);
            trayTime = bareTime ? timeOpening(tray, click, &failure) : std::nullopt;
        }
        if (!trayTime || !bareTime) {
            state.SkipWithError(failure);
            return;
        }
        trayFirst = !trayFirst;
        trayTimes.push_back(*trayTime);
        bareTimes.push_back(*bareTime);
        state.SetIterationTime(*trayTime + *bareTime);
    }
    if (tray->actions().size() < kItems) {
        state.SkipWithError("the menu does not list every instance");
        return;
    }
    const double trayMedian = median(trayTimes), bareMedian = median(bareTimes);
    state.counters["tray_ms"] = trayMedian * 1e3;
    state.counters["bare_ms"] = bareMedian * 1e3;
    state.counters["ratio"] = bareMedian > 0 ? trayMedian / bareMedian : 0;
}

// For reference only: filled once and merely shown again; Qt keeps the layout
// of an unchanged menu, so this is the cost of showing alone.
void BM_BareMenuShownOnly(benchmark::State &state) {
    QMenu bare;
    bare.setStyle(bareStyle.get());
    fillBare(bare);
    for (auto _ : state) {
        const char *failure = nullptr;
        const auto time = timeOpening(
            &bare, [&] { bare.popup(QPoint(0, 0)); }, &failure);
        if (!time) {
            state.SkipWithError(failure);
            return;
        }
        state.SetIterationTime(*time);
    }
}

BENCHMARK(BM_TrayMenuBesideBareMenu)->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(4.0);
BENCHMARK(BM_BareMenuShownOnly)->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_Rescan)->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_PermissionTests)->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(2.0);

class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run> &runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run &run : runs) {
            if (run.run_type == Run::RT_Iteration && run.iterations > 0 && !run.error_occurred) {
                const std::string &name = run.run_name.function_name;
                values[name] = run.real_accumulated_time / double(run.iterations);
                for (const auto &[counter, value] : run.counters) {
                    values[name + '.' + counter] = value.value;
                }
            }
        }
    }
    double value(const std::string &name) const {
        const auto found = values.find(name);
        return found == values.end() ? 0.0 : found->second;
    }
    std::map<std::string, double> values;
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
    const double tray = reporter.value("BM_TrayMenuBesideBareMenu.tray_ms");
    const double bare = reporter.value("BM_TrayMenuBesideBareMenu.bare_ms");
    const double shownOnly = reporter.value("BM_BareMenuShownOnly") * 1e3;
    const double rescan = reporter.value("BM_Rescan") * 1e3;
    const double permissions = reporter.value("BM_PermissionTests") * 1e3;
    if (tray > 0 && bare > 0) {
        std::printf(
            "\nplatform %s, medians of interleaved openings: click to shown %.2f ms, "
            "bare QMenu filled and shown %.2f ms\nratio %.2fx\n",
            qPrintable(QGuiApplication::platformName()), tray, bare, tray / bare);
        if (rescan > 0) {
            std::printf("rescan alone %.2f ms (mean); without it %.2fx\n", rescan,
                        (tray - rescan) / bare);
        }
        if (rescan > 0 && permissions > 0) {
            // What every opening must ask the file system, beside the bare menu;
            // the tray overlaps the permission tests with its item work.
            std::printf(
                "permission tests alone %.2f ms (mean); bare menu, rescan and permission "
                "tests one after another %.2fx\n",
                permissions, (bare + rescan + permissions) / bare);
        }
        if (shownOnly > 0) {
            std::printf("bare QMenu shown only %.2f ms (mean): ratio %.2fx\n", shownOnly,
                        tray / shownOnly);
        }
    }
    bareStyle.reset();
    benchmark::Shutdown();
    return 0;
}
