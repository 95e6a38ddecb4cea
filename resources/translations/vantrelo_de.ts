<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE">
<context>
    <name></name>
    <message id="menu_home">
        <source>Open Vantrelo</source>
        <translation>Vantrelo öffnen</translation>
    </message>
    <message id="disk_action_ejectAll">
        <source>Eject All Disks</source>
        <translation>Alle Datenträger auswerfen</translation>
    </message>
    <message id="menu_launch">
        <source>Launch at Login</source>
        <translation>Bei der Anmeldung starten</translation>
    </message>
    <message id="menu_launch_on">
        <source>On</source>
        <translation>Ein</translation>
    </message>
    <message id="menu_launch_off">
        <source>Off</source>
        <translation>Aus</translation>
    </message>
    <message id="menu_faq">
        <source>Help &amp; FAQ</source>
        <translation>Hilfe und häufige Fragen</translation>
    </message>
    <message id="menu_feedback">
        <source>Send Feedback…</source>
        <translation>Feedback senden …</translation>
    </message>
    <message id="menu_checkupdate">
        <source>Check for Updates…</source>
        <translation>Nach Updates suchen …</translation>
    </message>
    <message id="menu_quit">
        <source>Quit Vantrelo</source>
        <translation>Vantrelo beenden</translation>
    </message>
    <message id="disk_internal">
        <source>Internal Disks</source>
        <translation>Interne Datenträger</translation>
    </message>
    <message id="disk_external">
        <source>External Disks</source>
        <translation>Externe Datenträger</translation>
    </message>
    <message id="disk_info_device">
        <source>Device</source>
        <translation>Gerät</translation>
    </message>
    <message id="disk_info_mountpath">
        <source>Mount Point</source>
        <translation>Einhängepunkt</translation>
    </message>
    <message id="disk_info_format">
        <source>Format</source>
        <translation>Dateisystem</translation>
    </message>
    <message id="disk_info_permission">
        <source>Permission</source>
        <translation>Zugriff</translation>
    </message>
    <message id="disk_permission_readwrite">
        <source>Read &amp; Write</source>
        <translation>Lesen und Schreiben</translation>
    </message>
    <message id="disk_permission_readonly">
        <source>Read Only</source>
        <translation>Nur Lesen</translation>
    </message>
    <message id="disk_totalsize_freesize">
        <source>%1 free of %2</source>
        <translation>%1 von %2 frei</translation>
    </message>
    <message id="disk_action_open">
        <source>Open</source>
        <translation>Öffnen</translation>
    </message>
    <message id="disk_action_openrw">
        <source>Open Read/Write</source>
        <translation>Mit Schreibzugriff öffnen</translation>
    </message>
    <message id="disk_action_eject">
        <source>Eject</source>
        <translation>Auswerfen</translation>
    </message>
    <message id="disk_action_repair">
        <source>Repair</source>
        <translation>Reparieren</translation>
    </message>
    <message id="disk_action_erase">
        <source>Erase</source>
        <translation>Löschen</translation>
    </message>
    <message id="disk_installhelper_tip">
        <source>To write to NTFS disks, Vantrelo needs Vantrelo Helper and the NTFS-3G driver. Download the helper installer now?</source>
        <translation>Um auf NTFS-Datenträger zu schreiben, benötigt Vantrelo den Vantrelo Helper und den NTFS-3G-Treiber. Möchten Sie das Installationsprogramm für den Helper jetzt herunterladen?</translation>
    </message>
    <message id="disk_installhelper_install">
        <source>Download</source>
        <translation>Herunterladen</translation>
    </message>
    <message id="disk_installhelper_cancel">
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
    <message id="disk_fullaccess_tip">
        <source>Allow Access</source>
        <translation>Zugriff erlauben</translation>
    </message>
    <message id="mount_failed_title">
        <source>The disk could not be mounted for reading and writing. The guide explains what to check.</source>
        <translation>Der Datenträger konnte nicht mit Schreibzugriff eingebunden werden. In der Anleitung steht, was Sie prüfen können.</translation>
    </message>
    <message id="mount_failed_checkdocument">
        <source>View Guide</source>
        <translation>Anleitung öffnen</translation>
    </message>
    <message id="disk_repair_loading">
        <source>Repairing the disk…</source>
        <translation>Datenträger wird repariert …</translation>
    </message>
    <message id="disk_repair_success">
        <source>Repair finished.</source>
        <translation>Reparatur abgeschlossen.</translation>
    </message>
    <message id="disk_erase_title">
        <source>Erase this disk? All data on it will be deleted and cannot be recovered.</source>
        <translation>Diesen Datenträger löschen? Alle Daten darauf werden entfernt und können nicht wiederhergestellt werden.</translation>
    </message>
    <message id="disk_erase_ok">
        <source>Erase</source>
        <translation>Löschen</translation>
    </message>
    <message id="disk_erase_loading">
        <source>Erasing the disk…</source>
        <translation>Datenträger wird gelöscht …</translation>
    </message>
    <message id="disk_erase_success">
        <source>The disk was erased.</source>
        <translation>Der Datenträger wurde gelöscht.</translation>
    </message>
    <message id="diskrename_installhelper_tip">
        <source>Renaming a disk needs Vantrelo Helper. Download the helper installer now?</source>
        <translation>Zum Umbenennen eines Datenträgers wird der Vantrelo Helper benötigt. Möchten Sie das Installationsprogramm jetzt herunterladen?</translation>
    </message>
    <message id="diskrename_installhelper_updatetip">
        <source>Renaming a disk needs a newer version of Vantrelo Helper. Download the latest installer now?</source>
        <translation>Zum Umbenennen eines Datenträgers wird eine neuere Version des Vantrelo Helper benötigt. Möchten Sie das aktuelle Installationsprogramm jetzt herunterladen?</translation>
    </message>
    <message id="diskrename_failed_tip">
        <source>The disk could not be renamed: %1</source>
        <translation>Der Datenträger konnte nicht umbenannt werden: %1</translation>
    </message>
    <message id="diskrename_success_tip">
        <source>The disk was renamed. Eject it and connect it again to see the new name.</source>
        <translation>Der Datenträger wurde umbenannt. Werfen Sie ihn aus und schließen Sie ihn erneut an, damit der neue Name angezeigt wird.</translation>
    </message>
    <message id="Alert_Ok">
        <source>OK</source>
        <translation>OK</translation>
    </message>
    <message id="rename_window_title">
        <source>Rename Disk</source>
        <translation>Datenträger umbenennen</translation>
    </message>
    <message id="rename_newname_input">
        <source>New name:</source>
        <translation>Neuer Name:</translation>
    </message>
    <message id="rename_error_empty">
        <source>Please enter a name.</source>
        <translation>Bitte geben Sie einen Namen ein.</translation>
    </message>
    <message id="permission_accessibility_title">
        <source>Vantrelo Helper needs permission to mount disks</source>
        <translation>Der Vantrelo Helper braucht die Berechtigung, Datenträger einzubinden</translation>
    </message>
    <message id="permission_accessibility_subtitle">
        <source>To mount NTFS disks for writing, the helper service must run with administrator rights. Open the guide to see how to enable it, then try again.</source>
        <translation>Damit NTFS-Datenträger beschreibbar eingebunden werden können, muss der Helper-Dienst mit Administratorrechten laufen. In der Anleitung erfahren Sie, wie Sie ihn aktivieren. Versuchen Sie es danach erneut.</translation>
    </message>
    <message id="permission_accessibility_startAuth">
        <source>Open Guide</source>
        <translation>Anleitung öffnen</translation>
    </message>
</context>
</TS>
