#pragma once

#include "../PlatformServices.h"

#include <QString>

// The Linux desktop: QDesktopServices (xdg-open underneath) for opening.
class QtDesktopOpener : public DesktopOpener {
public:
    bool openUrl(const QUrl &url) override;
    bool openFile(const QString &path) override;
};

// Login items as the .desktop files of an XDG autostart directory, taken in
// file-name order. An entry resolves to the file URL of the package root
// (the directory above the one holding its program) when its Exec names an
// absolute program path that exists; Hidden=true entries (and those with
// X-GNOME-Autostart-enabled=false) count as absent. New entries are named
// corvanta-monitor.desktop, or corvanta-monitor-N.desktop when another
// program's entry holds that name.
class XdgAutostartList : public LoginItemList {
public:
    // executablePath is what new entries start; its package root is the
    // program's identity.
    XdgAutostartList(QString autostartDir, QString executablePath);

    // $XDG_CONFIG_HOME/autostart, or ~/.config/autostart.
    static QString defaultDirectory();

    // The program's identity: the file URL of the directory above the one
    // holding the executable, cleaned lexically, without a trailing slash.
    static QUrl packageRootUrl(const QString &executablePath);

    std::optional<QList<LoginItem>> snapshot() override;
    bool insertFirst(const QUrl &bundleUrl) override;
    bool remove(const LoginItem &item) override;

private:
    QString _dir;
    QString _executablePath;
};
