<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="fr_FR">
<context>
    <name></name>
    <message id="menu_home">
        <source>Open Vantrelo</source>
        <translation>Ouvrir Vantrelo</translation>
    </message>
    <message id="disk_action_ejectAll">
        <source>Eject All Disks</source>
        <translation>Éjecter tous les disques</translation>
    </message>
    <message id="menu_launch">
        <source>Launch at Login</source>
        <translation>Lancer à l’ouverture de session</translation>
    </message>
    <message id="menu_launch_on">
        <source>On</source>
        <translation>Activé</translation>
    </message>
    <message id="menu_launch_off">
        <source>Off</source>
        <translation>Désactivé</translation>
    </message>
    <message id="menu_faq">
        <source>Help &amp; FAQ</source>
        <translation>Aide et questions fréquentes</translation>
    </message>
    <message id="menu_feedback">
        <source>Send Feedback…</source>
        <translation>Envoyer un commentaire…</translation>
    </message>
    <message id="menu_checkupdate">
        <source>Check for Updates…</source>
        <translation>Rechercher des mises à jour…</translation>
    </message>
    <message id="menu_quit">
        <source>Quit Vantrelo</source>
        <translation>Quitter Vantrelo</translation>
    </message>
    <message id="disk_internal">
        <source>Internal Disks</source>
        <translation>Disques internes</translation>
    </message>
    <message id="disk_external">
        <source>External Disks</source>
        <translation>Disques externes</translation>
    </message>
    <message id="disk_info_device">
        <source>Device</source>
        <translation>Périphérique</translation>
    </message>
    <message id="disk_info_mountpath">
        <source>Mount Point</source>
        <translation>Point de montage</translation>
    </message>
    <message id="disk_info_format">
        <source>Format</source>
        <translation>Système de fichiers</translation>
    </message>
    <message id="disk_info_permission">
        <source>Permission</source>
        <translation>Autorisations</translation>
    </message>
    <message id="disk_permission_readwrite">
        <source>Read &amp; Write</source>
        <translation>Lecture et écriture</translation>
    </message>
    <message id="disk_permission_readonly">
        <source>Read Only</source>
        <translation>Lecture seule</translation>
    </message>
    <message id="disk_totalsize_freesize">
        <source>%1 free of %2</source>
        <translation>%1 libres sur %2</translation>
    </message>
    <message id="disk_action_open">
        <source>Open</source>
        <translation>Ouvrir</translation>
    </message>
    <message id="disk_action_openrw">
        <source>Open Read/Write</source>
        <translation>Ouvrir en lecture-écriture</translation>
    </message>
    <message id="disk_action_eject">
        <source>Eject</source>
        <translation>Éjecter</translation>
    </message>
    <message id="disk_action_repair">
        <source>Repair</source>
        <translation>Réparer</translation>
    </message>
    <message id="disk_action_erase">
        <source>Erase</source>
        <translation>Effacer</translation>
    </message>
    <message id="disk_installhelper_tip">
        <source>To write to NTFS disks, Vantrelo needs Vantrelo Helper and the NTFS-3G driver. Download the helper installer now?</source>
        <translation>Pour écrire sur des disques NTFS, Vantrelo a besoin de Vantrelo Helper et du pilote NTFS-3G. Voulez-vous télécharger le programme d’installation de l’assistant maintenant ?</translation>
    </message>
    <message id="disk_installhelper_install">
        <source>Download</source>
        <translation>Télécharger</translation>
    </message>
    <message id="disk_installhelper_cancel">
        <source>Cancel</source>
        <translation>Annuler</translation>
    </message>
    <message id="disk_fullaccess_tip">
        <source>Allow Access</source>
        <translation>Autoriser l’accès</translation>
    </message>
    <message id="mount_failed_title">
        <source>The disk could not be mounted for reading and writing. The guide explains what to check.</source>
        <translation>Le disque n’a pas pu être monté en lecture-écriture. Consultez le guide pour savoir quoi vérifier.</translation>
    </message>
    <message id="mount_failed_checkdocument">
        <source>View Guide</source>
        <translation>Consulter le guide</translation>
    </message>
    <message id="disk_repair_loading">
        <source>Repairing the disk…</source>
        <translation>Réparation du disque…</translation>
    </message>
    <message id="disk_repair_success">
        <source>Repair finished.</source>
        <translation>Réparation terminée.</translation>
    </message>
    <message id="disk_erase_title">
        <source>Erase this disk? All data on it will be deleted and cannot be recovered.</source>
        <translation>Effacer ce disque ? Toutes ses données seront supprimées définitivement.</translation>
    </message>
    <message id="disk_erase_ok">
        <source>Erase</source>
        <translation>Effacer</translation>
    </message>
    <message id="disk_erase_loading">
        <source>Erasing the disk…</source>
        <translation>Effacement du disque…</translation>
    </message>
    <message id="disk_erase_success">
        <source>The disk was erased.</source>
        <translation>Le disque a été effacé.</translation>
    </message>
    <message id="diskrename_installhelper_tip">
        <source>Renaming a disk needs Vantrelo Helper. Download the helper installer now?</source>
        <translation>Pour renommer un disque, Vantrelo Helper est nécessaire. Voulez-vous télécharger le programme d’installation maintenant ?</translation>
    </message>
    <message id="diskrename_installhelper_updatetip">
        <source>Renaming a disk needs a newer version of Vantrelo Helper. Download the latest installer now?</source>
        <translation>Pour renommer un disque, une version plus récente de Vantrelo Helper est nécessaire. Voulez-vous télécharger le dernier programme d’installation maintenant ?</translation>
    </message>
    <message id="diskrename_failed_tip">
        <source>The disk could not be renamed: %1</source>
        <translation>Impossible de renommer le disque : %1</translation>
    </message>
    <message id="diskrename_success_tip">
        <source>The disk was renamed. Eject it and connect it again to see the new name.</source>
        <translation>Le disque a été renommé. Éjectez-le puis rebranchez-le pour voir le nouveau nom.</translation>
    </message>
    <message id="Alert_Ok">
        <source>OK</source>
        <translation>OK</translation>
    </message>
    <message id="rename_window_title">
        <source>Rename Disk</source>
        <translation>Renommer le disque</translation>
    </message>
    <message id="rename_newname_input">
        <source>New name:</source>
        <translation>Nouveau nom :</translation>
    </message>
    <message id="rename_error_empty">
        <source>Please enter a name.</source>
        <translation>Veuillez saisir un nom.</translation>
    </message>
    <message id="permission_accessibility_title">
        <source>Vantrelo Helper needs permission to mount disks</source>
        <translation>Vantrelo Helper a besoin d’une autorisation pour monter les disques</translation>
    </message>
    <message id="permission_accessibility_subtitle">
        <source>To mount NTFS disks for writing, the helper service must run with administrator rights. Open the guide to see how to enable it, then try again.</source>
        <translation>Pour monter des disques NTFS en écriture, le service d’assistance doit s’exécuter avec les droits d’administrateur. Consultez le guide pour savoir comment l’activer, puis réessayez.</translation>
    </message>
    <message id="permission_accessibility_startAuth">
        <source>Open Guide</source>
        <translation>Ouvrir le guide</translation>
    </message>
</context>
</TS>
