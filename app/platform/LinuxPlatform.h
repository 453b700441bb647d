#pragma once

#include "PlatformServices.h"

#include <QString>

// The Linux desktop: QDesktopServices (xdg-open underneath) for opening.
class QtDesktopOpener : public DesktopOpener {
public:
    bool openUrl(const QUrl &url) override;
    bool openFile(const QString &path) override;
};

// Login items as the .desktop files of an XDG autostart directory, taken in
// file-name order. An entry resolves to the file URL of the canonical path of
// the program its Exec names, when that is an absolute path to an existing
// file; Hidden=true entries (and those with X-GNOME-Autostart-enabled=false)
// count as absent. Many programs share one bin directory, so nothing but the
// program itself matches. New entries are named corvanta-monitor.desktop, or
// corvanta-monitor-N.desktop when another program's entry holds that name.
class XdgAutostartList : public LoginItemList {
public:
    // Entries are written and removed only for the program at executablePath.
    XdgAutostartList(QString autostartDir, const QString &executablePath);

    // $XDG_CONFIG_HOME/autostart, or ~/.config/autostart.
    static QString defaultDirectory();

    // The file URL of the canonical path of an existing file that is not a
    // directory; nothing otherwise.
    static std::optional<QUrl> programUrl(const QString &path);

    std::optional<QList<LoginItem>> snapshot() override;
    bool insertFirst(const QUrl &programUrl, const QStringList &arguments) override;
    bool remove(const LoginItem &item) override;

private:
    QString _dir;
    std::optional<QUrl> _identity;
};
