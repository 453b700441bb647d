<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE" sourcelanguage="en">
<context>
    <name>Application</name>
    <message>
        <location filename="../tray/Application.cpp" line="75"/>
        <source>Do you want to start the %1?</source>
        <translation>Möchten Sie die %1 starten?</translation>
    </message>
    <message>
        <location filename="../tray/Application.cpp" line="75"/>
        <source>Do you want to stop the %1?</source>
        <translation>Möchten Sie die %1 beenden?</translation>
    </message>
    <message>
        <location filename="../tray/Application.cpp" line="78"/>
        <source>This will start up a Corvanta instance in directory
%1.</source>
        <translation>Dadurch wird eine Corvanta-Instanz im Verzeichnis
%1 gestartet.</translation>
    </message>
    <message>
        <location filename="../tray/Application.cpp" line="79"/>
        <source>This will stop the Corvanta instance in directory
%1.</source>
        <translation>Dadurch wird die Corvanta-Instanz im Verzeichnis
%1 beendet.</translation>
    </message>
    <message>
        <location filename="../tray/Application.cpp" line="81"/>
        <source>Start</source>
        <translation>Starten</translation>
    </message>
    <message>
        <location filename="../tray/Application.cpp" line="81"/>
        <source>Stop</source>
        <translation>Beenden</translation>
    </message>
    <message>
        <location filename="../tray/Application.cpp" line="91"/>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <location filename="../tray/TrayMain.cpp" line="89"/>
        <source>Corvanta Monitor is already running</source>
        <translation>Corvanta Monitor läuft bereits</translation>
    </message>
</context>
<context>
    <name>CommandLine</name>
    <message>
        <location filename="../cli/CommandLine.cpp" line="18"/>
        <source>Show this help and exit.</source>
        <translation>Diese Hilfe anzeigen und beenden.</translation>
    </message>
    <message>
        <location filename="../cli/CommandLine.cpp" line="20"/>
        <source>Show the version and exit.</source>
        <translation>Die Version anzeigen und beenden.</translation>
    </message>
    <message>
        <location filename="../cli/CommandLine.cpp" line="22"/>
        <source>Use the Corvanta installation in &lt;dir&gt;.</source>
        <translation>Die Corvanta-Installation in &lt;dir&gt; verwenden.</translation>
    </message>
    <message>
        <location filename="../cli/CommandLine.cpp" line="26"/>
        <source>Remember &lt;dir&gt; as the Corvanta installation in the settings file and exit.</source>
        <translation>&lt;dir&gt; als Corvanta-Installation in der Einstellungsdatei speichern und beenden.</translation>
    </message>
    <message>
        <location filename="../cli/CommandLine.cpp" line="46"/>
        <source>start, stop: wait until the instance is running or stopped, at most --wait=&lt;seconds&gt; (default %1); then exit status 5.</source>
        <translation>start, stop: warten, bis die Instanz läuft oder gestoppt ist, höchstens --wait=&lt;sekunden&gt; (Vorgabe %1); danach Exit-Status 5.</translation>
    </message>
    <message>
        <location filename="../cli/CommandLine.cpp" line="53"/>
        <source>Watches the local Corvanta database servers from the system tray.</source>
        <translation>Überwacht die lokalen Corvanta-Datenbankserver aus dem Systembereich der Kontrollleiste.</translation>
    </message>
    <message>
        <location filename="../cli/CommandLine.cpp" line="31"/>
        <source>list, status, start, stop: print one JSON document; watch: one per line.</source>
        <translation>list, status, start, stop: ein JSON-Dokument ausgeben; watch: eines je Zeile.</translation>
    </message>
    <message>
        <location filename="../cli/CommandLine.cpp" line="35"/>
        <source>metrics: write to &lt;file&gt;, replaced atomically, instead of standard output.</source>
        <translation>metrics: in &lt;file&gt; schreiben, atomar ersetzt, statt in die Standardausgabe.</translation>
    </message>
    <message>
        <location filename="../cli/CommandLine.cpp" line="40"/>
        <source>watch: keep &lt;file&gt; current in the Prometheus text format.</source>
        <translation>watch: &lt;file&gt; im Prometheus-Textformat aktuell halten.</translation>
    </message>
    <message>
        <location filename="../cli/CommandLine.cpp" line="61"/>
        <source>%1 or %2; without one the tray starts.</source>
        <translation>%1 oder %2; ohne Befehl startet das Symbol in der Kontrollleiste.</translation>
    </message>
    <message>
        <location filename="../cli/CommandLine.cpp" line="113"/>
        <source>
The installation is the first existing directory of: --home,
CORVANTA_HOME, home= in section [monitor] of
%1,
/opt/corvanta, /usr/lib/corvanta, %2.

Commands (they need no display):
</source>
        <translation>
Die Installation ist das erste vorhandene Verzeichnis aus: --home,
CORVANTA_HOME, home= im Abschnitt [monitor] von
%1,
/opt/corvanta, /usr/lib/corvanta, %2.

Befehle (sie brauchen keine Anzeige):
</translation>
    </message>
    <message>
        <location filename="../cli/CommandLine.cpp" line="124"/>
        <source>An instance is a directory name as listed, a path to the instance
directory, or default (also when none is given).

Exit status: 0 success, 1 failure, 2 usage error, 3 not running,
4 no such instance, 5 timeout.
</source>
        <translation>Eine Instanz ist ein Verzeichnisname wie aufgelistet, ein Pfad zum
Instanzverzeichnis oder default (auch, wenn keine angegeben ist).

Exit-Status: 0 Erfolg, 1 Fehler, 2 Aufruffehler, 3 läuft nicht,
4 keine solche Instanz, 5 Zeitüberschreitung.
</translation>
    </message>
    <message>
        <location filename="../cli/Commands.cpp" line="229"/>
        <source>every instance, in the menu&apos;s order</source>
        <translation>jede Instanz, in der Reihenfolge des Menüs</translation>
    </message>
    <message>
        <location filename="../cli/Commands.cpp" line="231"/>
        <source>one instance; exit status 3 when its
server is not running</source>
        <translation>eine Instanz; Exit-Status 3, wenn ihr
Server nicht läuft</translation>
    </message>
    <message>
        <location filename="../cli/Commands.cpp" line="235"/>
        <source>start its server</source>
        <translation>ihren Server starten</translation>
    </message>
    <message>
        <location filename="../cli/Commands.cpp" line="237"/>
        <source>stop its server</source>
        <translation>ihren Server beenden</translation>
    </message>
    <message>
        <location filename="../cli/Commands.cpp" line="239"/>
        <source>every instance, or one, then each
change until interrupted</source>
        <translation>jede Instanz oder eine, dann jede
Änderung bis zur Unterbrechung</translation>
    </message>
    <message>
        <location filename="../cli/Commands.cpp" line="243"/>
        <source>every instance in the Prometheus
text format</source>
        <translation>jede Instanz im Prometheus-Textformat</translation>
    </message>
    <message>
        <location filename="../cli/CommandLine.cpp" line="134"/>
        <source>Try &apos;%1 --help&apos; for more information.</source>
        <translation>Mehr Informationen mit &apos;%1 --help&apos;.</translation>
    </message>
    <message>
        <location filename="../cli/CommandLine.cpp" line="141"/>
        <source>%1: not a directory</source>
        <translation>%1: kein Verzeichnis</translation>
    </message>
    <message>
        <location filename="../cli/CommandLine.cpp" line="183"/>
        <source>%1 needs a command</source>
        <translation>%1 braucht einen Befehl</translation>
    </message>
    <message>
        <location filename="../cli/CommandLine.cpp" line="197"/>
        <source>unknown command &apos;%1&apos;</source>
        <translation>unbekannter Befehl &apos;%1&apos;</translation>
    </message>
    <message>
        <location filename="../cli/CommandLine.cpp" line="201"/>
        <source>too many arguments for %1</source>
        <translation>zu viele Argumente für %1</translation>
    </message>
    <message>
        <location filename="../cli/CommandLine.cpp" line="206"/>
        <source>%1 does not take %2</source>
        <translation>%1 kennt %2 nicht</translation>
    </message>
    <message>
        <location filename="../cli/CommandLine.cpp" line="224"/>
        <source>--wait takes a number of seconds, not &apos;%1&apos;</source>
        <translation>--wait erwartet eine Zahl von Sekunden, nicht &apos;%1&apos;</translation>
    </message>
</context>
<context>
    <name>CorvantaInstance</name>
    <message>
        <location filename="../../registry/CorvantaInstance.cpp" line="86"/>
        <source>Default Instance</source>
        <translation>Standardinstanz</translation>
    </message>
    <message>
        <location filename="../../registry/CorvantaInstance.cpp" line="88"/>
        <source>Instance &apos;%1&apos;</source>
        <translation>Instanz „%1“</translation>
    </message>
</context>
<context>
    <name>InstanceCommand</name>
    <message>
        <location filename="../cli/Commands.cpp" line="68"/>
        <source>%1 is already running (pid %2).</source>
        <translation>%1 läuft bereits (PID %2).</translation>
    </message>
    <message>
        <location filename="../cli/Commands.cpp" line="72"/>
        <source>cannot start %1: %2 is not readable and writable</source>
        <translation>%1 kann nicht gestartet werden: %2 ist nicht les- und schreibbar</translation>
    </message>
    <message>
        <location filename="../cli/Commands.cpp" line="76"/>
        <source>cannot start %1</source>
        <translation>%1 kann nicht gestartet werden</translation>
    </message>
    <message>
        <location filename="../cli/Commands.cpp" line="79"/>
        <source>%1 is starting (pid %2).</source>
        <translation>%1 wird gestartet (PID %2).</translation>
    </message>
    <message>
        <location filename="../cli/Commands.cpp" line="83"/>
        <source>%1 is running (pid %2).</source>
        <translation>%1 läuft (PID %2).</translation>
    </message>
    <message>
        <location filename="../cli/Commands.cpp" line="90"/>
        <source>the server of %1 exited before it was running; see %2</source>
        <translation>der Server von %1 hat sich beendet, bevor er lief; siehe %2</translation>
    </message>
    <message>
        <location filename="../cli/Commands.cpp" line="92"/>
        <source>the server of %1 exited before it was running</source>
        <translation>der Server von %1 hat sich beendet, bevor er lief</translation>
    </message>
    <message>
        <location filename="../cli/Commands.cpp" line="98"/>
        <source>%1 is already stopped.</source>
        <translation>%1 ist bereits gestoppt.</translation>
    </message>
    <message>
        <location filename="../cli/Commands.cpp" line="101"/>
        <source>cannot stop %1: %2 is not readable and writable</source>
        <translation>%1 kann nicht beendet werden: %2 ist nicht les- und schreibbar</translation>
    </message>
    <message>
        <location filename="../cli/Commands.cpp" line="106"/>
        <source>cannot stop %1</source>
        <translation>%1 kann nicht beendet werden</translation>
    </message>
    <message>
        <location filename="../cli/Commands.cpp" line="109"/>
        <source>%1 is stopping (pid %2).</source>
        <translation>%1 wird beendet (PID %2).</translation>
    </message>
    <message>
        <location filename="../cli/Commands.cpp" line="114"/>
        <source>%1 is stopped.</source>
        <translation>%1 ist gestoppt.</translation>
    </message>
    <message>
        <location filename="../cli/Commands.cpp" line="160"/>
        <source>%1 is still %2 after %3 s</source>
        <translation>%1: nach %3 s immer noch %2</translation>
    </message>
</context>
<context>
    <name>InstanceLookup</name>
    <message>
        <location filename="../cli/InstanceLookup.cpp" line="24"/>
        <source>no instances in the installation</source>
        <translation>keine Instanzen in der Installation</translation>
    </message>
    <message numerus="yes">
        <location filename="../cli/InstanceLookup.cpp" line="25"/>
        <source>no default instance among %n instances; name one</source>
        <translation>
            <numerusform>keine Standardinstanz unter %n Instanz; bitte eine nennen</numerusform>
            <numerusform>keine Standardinstanz unter %n Instanzen; bitte eine nennen</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <location filename="../cli/InstanceLookup.cpp" line="39"/>
        <source>&apos;%1&apos; names %n instances; give the directory&apos;s path</source>
        <translation>
            <numerusform>&apos;%1&apos; bezeichnet %n Instanz; bitte den Pfad des Verzeichnisses angeben</numerusform>
            <numerusform>&apos;%1&apos; bezeichnet %n Instanzen; bitte den Pfad des Verzeichnisses angeben</numerusform>
        </translation>
    </message>
    <message>
        <location filename="../cli/InstanceLookup.cpp" line="50"/>
        <source>no such instance: %1</source>
        <translation>keine solche Instanz: %1</translation>
    </message>
</context>
<context>
    <name>InstanceReport</name>
    <message>
        <location filename="../cli/InstanceReport.cpp" line="39"/>
        <source>unknown</source>
        <translation>unbekannt</translation>
    </message>
    <message>
        <location filename="../cli/InstanceReport.cpp" line="39"/>
        <source>stopped</source>
        <translation>gestoppt</translation>
    </message>
    <message>
        <location filename="../cli/InstanceReport.cpp" line="40"/>
        <source>starting</source>
        <translation>startet</translation>
    </message>
    <message>
        <location filename="../cli/InstanceReport.cpp" line="40"/>
        <source>running</source>
        <translation>läuft</translation>
    </message>
    <message>
        <location filename="../cli/InstanceReport.cpp" line="41"/>
        <source>stopping</source>
        <translation>wird beendet</translation>
    </message>
    <message>
        <location filename="../cli/InstanceReport.cpp" line="85"/>
        <source>INSTANCE</source>
        <translation>INSTANZ</translation>
    </message>
    <message>
        <location filename="../cli/InstanceReport.cpp" line="85"/>
        <source>DEFAULT</source>
        <translation>STANDARD</translation>
    </message>
    <message>
        <location filename="../cli/InstanceReport.cpp" line="85"/>
        <source>STATE</source>
        <translation>ZUSTAND</translation>
    </message>
    <message>
        <location filename="../cli/InstanceReport.cpp" line="85"/>
        <source>PID</source>
        <translation>PID</translation>
    </message>
    <message>
        <location filename="../cli/InstanceReport.cpp" line="85"/>
        <source>NAME</source>
        <translation>NAME</translation>
    </message>
    <message>
        <location filename="../cli/InstanceReport.cpp" line="86"/>
        <source>DIRECTORY</source>
        <translation>VERZEICHNIS</translation>
    </message>
    <message>
        <location filename="../cli/InstanceReport.cpp" line="86"/>
        <source>LOG</source>
        <translation>PROTOKOLL</translation>
    </message>
    <message>
        <location filename="../cli/InstanceReport.cpp" line="88"/>
        <source>yes</source>
        <translation>ja</translation>
    </message>
</context>
<context>
    <name>JsonOutput</name>
    <message>
        <location filename="../cli/Commands.cpp" line="35"/>
        <source>cannot write the output: %1</source>
        <translation>die Ausgabe kann nicht geschrieben werden: %1</translation>
    </message>
</context>
<context>
    <name>Listing</name>
    <message>
        <location filename="../cli/Commands.cpp" line="182"/>
        <source>No Corvanta instances in %1</source>
        <translation>Keine Corvanta-Instanzen in %1</translation>
    </message>
</context>
<context>
    <name>MessageBoxPrompt</name>
    <message>
        <location filename="../tray/MessageBoxPrompt.cpp" line="34"/>
        <source>Corvanta Monitor</source>
        <translation>Corvanta Monitor</translation>
    </message>
</context>
<context>
    <name>MetricsFile</name>
    <message>
        <location filename="../cli/Metrics.cpp" line="128"/>
        <source>%1 is not a regular file; not replacing it</source>
        <translation>%1 ist keine reguläre Datei; sie wird nicht ersetzt</translation>
    </message>
    <message>
        <location filename="../cli/Metrics.cpp" line="136"/>
        <source>%1 was not written by corvanta-monitor; not replacing it</source>
        <translation>%1 wurde nicht von corvanta-monitor geschrieben; sie wird nicht ersetzt</translation>
    </message>
    <message>
        <location filename="../cli/Metrics.cpp" line="151"/>
        <source>cannot write %1: %2</source>
        <translation>%1 kann nicht geschrieben werden: %2</translation>
    </message>
</context>
<context>
    <name>StatusIcon</name>
    <message>
        <location filename="../tray/StatusIcon.cpp" line="166"/>
        <source>Corvanta Monitor: the default instance is running</source>
        <translation>Corvanta Monitor: Die Standardinstanz läuft</translation>
    </message>
    <message>
        <location filename="../tray/StatusIcon.cpp" line="169"/>
        <source>Corvanta Monitor: the default instance is stopped</source>
        <translation>Corvanta Monitor: Die Standardinstanz ist angehalten</translation>
    </message>
    <message>
        <location filename="../tray/StatusIcon.cpp" line="172"/>
        <source>Corvanta Monitor: the default instance is starting or stopping</source>
        <translation>Corvanta Monitor: Die Standardinstanz startet oder hält an</translation>
    </message>
    <message>
        <location filename="../tray/StatusIcon.cpp" line="177"/>
        <source>Corvanta Monitor: the default instance&apos;s state is unknown</source>
        <translation>Corvanta Monitor: Der Zustand der Standardinstanz ist unbekannt</translation>
    </message>
</context>
<context>
    <name>StatusItem</name>
    <message>
        <location filename="../tray/StatusItem.cpp" line="12"/>
        <source>Nordelix Corvanta</source>
        <translation>Nordelix Corvanta</translation>
    </message>
</context>
<context>
    <name>StatusMenu</name>
    <message>
        <location filename="../tray/StatusMenu.cpp" line="210"/>
        <source>No Corvanta Instances</source>
        <translation>Keine Corvanta-Instanzen</translation>
    </message>
    <message>
        <location filename="../tray/StatusMenu.cpp" line="231"/>
        <source>Open Diagnostic Messages</source>
        <translation>Diagnosemeldungen öffnen</translation>
    </message>
    <message>
        <location filename="../tray/StatusMenu.cpp" line="233"/>
        <source>Open Corvanta Kelvarine</source>
        <translation>Corvanta Kelvarine öffnen</translation>
    </message>
    <message>
        <location filename="../tray/StatusMenu.cpp" line="236"/>
        <source>View Online Documentation</source>
        <translation>Online-Dokumentation anzeigen</translation>
    </message>
    <message>
        <location filename="../tray/StatusMenu.cpp" line="252"/>
        <source>Start Corvanta Monitor at Login</source>
        <translation>Corvanta Monitor bei der Anmeldung starten</translation>
    </message>
    <message>
        <location filename="../tray/StatusMenu.cpp" line="257"/>
        <source>Quit Corvanta Monitor</source>
        <translation>Corvanta Monitor beenden</translation>
    </message>
    <message>
        <location filename="../tray/StatusMenu.cpp" line="266"/>
        <source>Start %1</source>
        <translation>%1 starten</translation>
    </message>
    <message>
        <location filename="../tray/StatusMenu.cpp" line="266"/>
        <source>%1: Starting</source>
        <translation>%1: Wird gestartet</translation>
    </message>
    <message>
        <location filename="../tray/StatusMenu.cpp" line="266"/>
        <source>Stop %1</source>
        <translation>%1 beenden</translation>
    </message>
    <message>
        <location filename="../tray/StatusMenu.cpp" line="266"/>
        <source>%1: Stopping</source>
        <translation>%1: Wird beendet</translation>
    </message>
    <message>
        <location filename="../tray/StatusMenu.cpp" line="267"/>
        <source>%1: Unknown</source>
        <translation>%1: Unbekannt</translation>
    </message>
</context>
<context>
    <name>StatusReporter</name>
    <message>
        <location filename="../tray/StatusReporter.cpp" line="50"/>
        <source>The server exited with status %1.</source>
        <translation>Der Server wurde mit Status %1 beendet.</translation>
    </message>
    <message>
        <location filename="../tray/StatusReporter.cpp" line="54"/>
        <source>The server was killed by signal %1.</source>
        <translation>Der Server wurde durch Signal %1 beendet.</translation>
    </message>
    <message>
        <location filename="../tray/StatusReporter.cpp" line="56"/>
        <source>The server ended; its exit status is not known to Corvanta Monitor.</source>
        <translation>Der Server wurde beendet; sein Exit-Status ist Corvanta Monitor nicht bekannt.</translation>
    </message>
    <message>
        <location filename="../tray/StatusReporter.cpp" line="188"/>
        <source>%1 stopped</source>
        <translation>%1 wurde beendet</translation>
    </message>
    <message>
        <location filename="../tray/StatusReporter.cpp" line="190"/>
        <source>%1 failed to start</source>
        <translation>%1 konnte nicht gestartet werden</translation>
    </message>
    <message>
        <location filename="../tray/StatusReporter.cpp" line="193"/>
        <source>Last lines of its log:</source>
        <translation>Letzte Zeilen des Protokolls:</translation>
    </message>
    <message>
        <location filename="../tray/StatusReporter.cpp" line="198"/>
        <source>Open Log</source>
        <translation>Protokoll öffnen</translation>
    </message>
    <message>
        <location filename="../tray/StatusReporter.cpp" line="229"/>
        <source>%1 has not stopped</source>
        <translation>%1 wurde nicht beendet</translation>
    </message>
    <message>
        <location filename="../tray/StatusReporter.cpp" line="230"/>
        <source>The server is still running %1 seconds after it was asked to stop.</source>
        <translation>Der Server läuft %1 Sekunden nach der Aufforderung zum Beenden noch immer.</translation>
    </message>
    <message>
        <location filename="../tray/StatusReporter.cpp" line="232"/>
        <location filename="../tray/StatusReporter.cpp" line="246"/>
        <source>Force Stop</source>
        <translation>Beenden erzwingen</translation>
    </message>
    <message>
        <location filename="../tray/StatusReporter.cpp" line="241"/>
        <source>Do you want to force the %1 to stop?</source>
        <translation>Möchten Sie das Beenden der %1 erzwingen?</translation>
    </message>
    <message>
        <location filename="../tray/StatusReporter.cpp" line="242"/>
        <source>This sends signal 9 to process %1 in directory
%2. The server cannot finish its work first.</source>
        <translation>Dadurch wird Signal 9 an Prozess %1 im Verzeichnis
%2 gesendet. Der Server kann seine Arbeit vorher nicht abschließen.</translation>
    </message>
</context>
<context>
    <name>TrayHostWaiter</name>
    <message>
        <location filename="../tray/TrayHostWaiter.cpp" line="25"/>
        <source>No system tray found; the &quot;C&quot; icon appears once one runs. On GNOME Shell install a tray extension (gnome-shell-extension-appindicator), elsewhere a tray host such as trayer or stalonetray.</source>
        <translation>Keine Systemleiste gefunden; das „C“-Symbol erscheint, sobald eine läuft. Unter GNOME Shell eine Erweiterung für die Systemleiste installieren (gnome-shell-extension-appindicator), sonst eine Systemleiste wie trayer oder stalonetray.</translation>
    </message>
</context>
<context>
    <name>Watch</name>
    <message>
        <location filename="../cli/Metrics.cpp" line="180"/>
        <location filename="../cli/Watch.cpp" line="137"/>
        <source>cannot write the output: %1</source>
        <translation>die Ausgabe kann nicht geschrieben werden: %1</translation>
    </message>
    <message>
        <location filename="../cli/Watch.cpp" line="173"/>
        <source>%1 %2 %3</source>
        <translation>%1 %2 %3</translation>
    </message>
    <message>
        <location filename="../cli/Watch.cpp" line="176"/>
        <source>%1 %2 %3 -&gt; %4</source>
        <translation>%1 %2 %3 -&gt; %4</translation>
    </message>
    <message>
        <location filename="../cli/Watch.cpp" line="181"/>
        <source>%1 %2 appeared: %3</source>
        <translation>%1 %2 erschienen: %3</translation>
    </message>
    <message>
        <location filename="../cli/Watch.cpp" line="185"/>
        <source>%1 %2 disappeared</source>
        <translation>%1 %2 verschwunden</translation>
    </message>
    <message>
        <location filename="../cli/Watch.cpp" line="189"/>
        <source> (pid %1)</source>
        <translation> (PID %1)</translation>
    </message>
</context>
</TS>
