<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE" sourcelanguage="en">
<context>
    <name>Application</name>
    <message>
        <location filename="../Application.cpp" line="236"/>
        <source>Nordelix Corvanta</source>
        <translation>Nordelix Corvanta</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="177"/>
        <source>Start %1</source>
        <translation>%1 starten</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="183"/>
        <source>%1: Starting</source>
        <translation>%1: Wird gestartet</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="187"/>
        <source>Stop %1</source>
        <translation>%1 beenden</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="193"/>
        <source>%1: Stopping</source>
        <translation>%1: Wird beendet</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="196"/>
        <source>%1: Unknown</source>
        <translation>%1: Unbekannt</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="118"/>
        <source>No Corvanta Instances</source>
        <translation>Keine Corvanta-Instanzen</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="125"/>
        <source>Open Diagnostic Messages</source>
        <translation>Diagnosemeldungen öffnen</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="131"/>
        <source>Open Corvanta Kelvarine</source>
        <translation>Corvanta Kelvarine öffnen</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="137"/>
        <source>View Online Documentation</source>
        <translation>Online-Dokumentation anzeigen</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="141"/>
        <source>Start Corvanta Monitor at Login</source>
        <translation>Corvanta Monitor bei der Anmeldung starten</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="146"/>
        <source>Quit Corvanta Monitor</source>
        <translation>Corvanta Monitor beenden</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="54"/>
        <source>Do you want to start the %1?</source>
        <translation>Möchten Sie die %1 starten?</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="54"/>
        <source>Do you want to stop the %1?</source>
        <translation>Möchten Sie die %1 beenden?</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="57"/>
        <source>This will start up a Corvanta instance in directory
%1.</source>
        <translation>Dadurch wird eine Corvanta-Instanz im Verzeichnis
%1 gestartet.</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="58"/>
        <source>This will stop the Corvanta instance in directory
%1.</source>
        <translation>Dadurch wird die Corvanta-Instanz im Verzeichnis
%1 beendet.</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="60"/>
        <source>Start</source>
        <translation>Starten</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="60"/>
        <source>Stop</source>
        <translation>Beenden</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="61"/>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <location filename="../main.cpp" line="23"/>
        <source>Corvanta Monitor is already running</source>
        <translation>Corvanta Monitor läuft bereits</translation>
    </message>
</context>
<context>
    <name>CorvantaInstance</name>
    <message>
        <location filename="../../registry/CorvantaInstance.cpp" line="71"/>
        <source>Default Instance</source>
        <translation>Standardinstanz</translation>
    </message>
    <message>
        <location filename="../../registry/CorvantaInstance.cpp" line="72"/>
        <source>Instance &apos;%1&apos;</source>
        <translation>Instanz „%1“</translation>
    </message>
</context>
<context>
    <name>MessageBoxPrompt</name>
    <message>
        <location filename="../MessageBoxPrompt.cpp" line="27"/>
        <source>Corvanta Monitor</source>
        <translation>Corvanta Monitor</translation>
    </message>
</context>
<context>
    <name>TrayWatch</name>
    <message>
        <location filename="../TrayWatch.cpp" line="24"/>
        <source>No system tray found; the &quot;C&quot; icon appears once one runs. On GNOME Shell install a tray extension (gnome-shell-extension-appindicator), elsewhere a tray host such as trayer or stalonetray.</source>
        <translation>Keine Systemleiste gefunden; das „C“-Symbol erscheint, sobald eine läuft. Unter GNOME Shell eine Erweiterung für die Systemleiste installieren (gnome-shell-extension-appindicator), sonst eine Systemleiste wie trayer oder stalonetray.</translation>
    </message>
</context>
</TS>
