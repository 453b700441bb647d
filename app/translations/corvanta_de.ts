<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE" sourcelanguage="en">
<context>
    <name>Application</name>
    <message>
        <source>Nordelix Corvanta</source>
        <translation>Nordelix Corvanta</translation>
    </message>
    <message>
        <source>Start %1</source>
        <translation>%1 starten</translation>
    </message>
    <message>
        <source>%1: Starting</source>
        <translation>%1: Wird gestartet</translation>
    </message>
    <message>
        <source>Stop %1</source>
        <translation>%1 beenden</translation>
    </message>
    <message>
        <source>%1: Stopping</source>
        <translation>%1: Wird beendet</translation>
    </message>
    <message>
        <source>%1: Unknown</source>
        <translation>%1: Unbekannt</translation>
    </message>
    <message>
        <source>No Corvanta Instances</source>
        <translation>Keine Corvanta-Instanzen</translation>
    </message>
    <message>
        <source>Open Diagnostic Messages</source>
        <translation>Diagnosemeldungen öffnen</translation>
    </message>
    <message>
        <source>Open Corvanta Kelvarine</source>
        <translation>Corvanta Kelvarine öffnen</translation>
    </message>
    <message>
        <source>View Online Documentation</source>
        <translation>Online-Dokumentation anzeigen</translation>
    </message>
    <message>
        <source>Start Corvanta Monitor at Login</source>
        <translation>Corvanta Monitor bei der Anmeldung starten</translation>
    </message>
    <message>
        <source>Quit Corvanta Monitor</source>
        <translation>Corvanta Monitor beenden</translation>
    </message>
    <message>
        <source>Do you want to start the %1?</source>
        <translation>Möchten Sie die %1 starten?</translation>
    </message>
    <message>
        <source>Do you want to stop the %1?</source>
        <translation>Möchten Sie die %1 beenden?</translation>
    </message>
    <message>
        <source>This will start up a Corvanta instance in directory
%1.</source>
        <translation>Dadurch wird eine Corvanta-Instanz im Verzeichnis
%1 gestartet.</translation>
    </message>
    <message>
        <source>This will stop the Corvanta instance in directory
%1.</source>
        <translation>Dadurch wird die Corvanta-Instanz im Verzeichnis
%1 beendet.</translation>
    </message>
    <message>
        <source>Start</source>
        <translation>Starten</translation>
    </message>
    <message>
        <source>Stop</source>
        <translation>Beenden</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
</context>
<context>
    <name>CorvantaInstance</name>
    <message>
        <source>Default Instance</source>
        <translation>Standardinstanz</translation>
    </message>
    <message>
        <source>Instance &apos;%1&apos;</source>
        <translation>Instanz „%1“</translation>
    </message>
</context>
</TS>
