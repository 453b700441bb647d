<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE" sourcelanguage="en">
<context>
    <name>Application</name>
    <message>
        <location filename="../Application.cpp" line="276"/>
        <source>Nordelix Corvanta</source>
        <translation>Nordelix Corvanta</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="214"/>
        <source>Start %1</source>
        <translation>%1 starten</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="220"/>
        <source>%1: Starting</source>
        <translation>%1: Wird gestartet</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="224"/>
        <source>Stop %1</source>
        <translation>%1 beenden</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="230"/>
        <source>%1: Stopping</source>
        <translation>%1: Wird beendet</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="233"/>
        <source>%1: Unknown</source>
        <translation>%1: Unbekannt</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="125"/>
        <source>No Corvanta Instances</source>
        <translation>Keine Corvanta-Instanzen</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="132"/>
        <source>Open Diagnostic Messages</source>
        <translation>Diagnosemeldungen öffnen</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="138"/>
        <source>Open Corvanta Kelvarine</source>
        <translation>Corvanta Kelvarine öffnen</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="144"/>
        <source>View Online Documentation</source>
        <translation>Online-Dokumentation anzeigen</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="148"/>
        <source>Start Corvanta Monitor at Login</source>
        <translation>Corvanta Monitor bei der Anmeldung starten</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="153"/>
        <source>Quit Corvanta Monitor</source>
        <translation>Corvanta Monitor beenden</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="61"/>
        <source>Do you want to start the %1?</source>
        <translation>Möchten Sie die %1 starten?</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="61"/>
        <source>Do you want to stop the %1?</source>
        <translation>Möchten Sie die %1 beenden?</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="64"/>
        <source>This will start up a Corvanta instance in directory
%1.</source>
        <translation>Dadurch wird eine Corvanta-Instanz im Verzeichnis
%1 gestartet.</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="65"/>
        <source>This will stop the Corvanta instance in directory
%1.</source>
        <translation>Dadurch wird die Corvanta-Instanz im Verzeichnis
%1 beendet.</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="67"/>
        <source>Start</source>
        <translation>Starten</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="67"/>
        <source>Stop</source>
        <translation>Beenden</translation>
    </message>
    <message>
        <location filename="../Application.cpp" line="68"/>
        <location filename="../Application.cpp" line="167"/>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <location filename="../main.cpp" line="26"/>
        <source>Corvanta Monitor is already running</source>
        <translation>Corvanta Monitor läuft bereits</translation>
    </message>
</context>
<context>
    <name>CorvantaInstance</name>
    <message>
        <location filename="../../registry/CorvantaInstance.cpp" line="108"/>
        <source>Default Instance</source>
        <translation>Standardinstanz</translation>
    </message>
    <message>
        <location filename="../../registry/CorvantaInstance.cpp" line="110"/>
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
<context>
    <name>StatusWatch</name>
    <message>
        <location filename="../StatusWatch.cpp" line="36"/>
        <source>The server exited with status %1.</source>
        <translation>Der Server wurde mit Status %1 beendet.</translation>
    </message>
    <message>
        <location filename="../StatusWatch.cpp" line="39"/>
        <source>The server was killed by signal %1.</source>
        <translation>Der Server wurde durch Signal %1 beendet.</translation>
    </message>
    <message>
        <location filename="../StatusWatch.cpp" line="41"/>
        <source>The server ended; its exit status is not known to Corvanta Monitor.</source>
        <translation>Der Server wurde beendet; sein Exit-Status ist Corvanta Monitor nicht bekannt.</translation>
    </message>
    <message>
        <location filename="../StatusWatch.cpp" line="157"/>
        <source>%1 stopped</source>
        <translation>%1 wurde beendet</translation>
    </message>
    <message>
        <location filename="../StatusWatch.cpp" line="159"/>
        <source>%1 failed to start</source>
        <translation>%1 konnte nicht gestartet werden</translation>
    </message>
    <message>
        <location filename="../StatusWatch.cpp" line="162"/>
        <source>Last lines of its log:</source>
        <translation>Letzte Zeilen des Protokolls:</translation>
    </message>
    <message>
        <location filename="../StatusWatch.cpp" line="167"/>
        <source>Open Log</source>
        <translation>Protokoll öffnen</translation>
    </message>
    <message>
        <location filename="../StatusWatch.cpp" line="198"/>
        <source>%1 has not stopped</source>
        <translation>%1 wurde nicht beendet</translation>
    </message>
    <message>
        <location filename="../StatusWatch.cpp" line="199"/>
        <source>The server is still running %1 seconds after it was asked to stop.</source>
        <translation>Der Server läuft %1 Sekunden nach der Aufforderung zum Beenden noch immer.</translation>
    </message>
    <message>
        <location filename="../StatusWatch.cpp" line="201"/>
        <location filename="../StatusWatch.cpp" line="215"/>
        <source>Force Stop</source>
        <translation>Beenden erzwingen</translation>
    </message>
    <message>
        <location filename="../StatusWatch.cpp" line="210"/>
        <source>Do you want to force the %1 to stop?</source>
        <translation>Möchten Sie das Beenden der %1 erzwingen?</translation>
    </message>
    <message>
        <location filename="../StatusWatch.cpp" line="211"/>
        <source>This sends signal 9 to process %1 in directory
%2. The server cannot finish its work first.</source>
        <translation>Dadurch wird Signal 9 an Prozess %1 im Verzeichnis
%2 gesendet. Der Server kann seine Arbeit vorher nicht abschließen.</translation>
    </message>
</context>
</TS>
