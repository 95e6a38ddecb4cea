<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en">
<context>
    <name></name>
    <message id="menu_home">
        <source>Open Vantrelo</source>
        <translation>Open Vantrelo</translation>
    </message>
    <message id="disk_action_ejectAll">
        <source>Eject All Disks</source>
        <translation>Eject All Disks</translation>
    </message>
    <message id="menu_launch">
        <source>Launch at Login</source>
        <translation>Launch at Login</translation>
    </message>
    <message id="menu_launch_on">
        <source>On</source>
        <translation>On</translation>
    </message>
    <message id="menu_launch_off">
        <source>Off</source>
        <translation>Off</translation>
    </message>
    <message id="menu_faq">
        <source>Help &amp; FAQ</source>
        <translation>Help &amp; FAQ</translation>
    </message>
    <message id="menu_feedback">
        <source>Send Feedback…</source>
        <translation>Send Feedback…</translation>
    </message>
    <message id="menu_checkupdate">
        <source>Check for Updates…</source>
        <translation>Check for Updates…</translation>
    </message>
    <message id="menu_quit">
        <source>Quit Vantrelo</source>
        <translation>Quit Vantrelo</translation>
    </message>
    <message id="disk_internal">
        <source>Internal Disks</source>
        <translation>Internal Disks</translation>
    </message>
    <message id="disk_external">
        <source>External Disks</source>
        <translation>External Disks</translation>
    </message>
    <message id="disk_info_device">
        <source>Device</source>
        <translation>Device</translation>
    </message>
    <message id="disk_info_mountpath">
        <source>Mount Point</source>
        <translation>Mount Point</translation>
    </message>
    <message id="disk_info_format">
        <source>Format</source>
        <translation>Format</translation>
    </message>
    <message id="disk_info_permission">
        <source>Permission</source>
        <translation>Permission</translation>
    </message>
    <message id="disk_permission_readwrite">
        <source>Read &amp; Write</source>
        <translation>Read &amp; Write</translation>
    </message>
    <message id="disk_permission_readonly">
        <source>Read Only</source>
        <translation>Read Only</translation>
    </message>
    <message id="disk_totalsize_freesize">
        <source>%1 free of %2</source>
        <translation>%1 free of %2</translation>
    </message>
    <message id="disk_action_open">
        <source>Open</source>
        <translation>Open</translation>
    </message>
    <message id="disk_action_openrw">
        <source>Open Read/Write</source>
        <translation>Open Read/Write</translation>
    </message>
    <message id="disk_action_eject">
        <source>Eject</source>
        <translation>Eject</translation>
    </message>
    <message id="disk_action_repair">
        <source>Repair</source>
        <translation>Repair</translation>
    </message>
    <message id="disk_action_erase">
        <source>Erase</source>
        <translation>Erase</translation>
    </message>
    <message id="disk_installhelper_tip">
        <source>To write to NTFS disks, Vantrelo needs Vantrelo Helper and the NTFS-3G driver. Download the helper installer now?</source>
        <translation>To write to NTFS disks, Vantrelo needs Vantrelo Helper and the NTFS-3G driver. Download the helper installer now?</translation>
    </message>
    <message id="disk_installhelper_install">
        <source>Download</source>
        <translation>Download</translation>
    </message>
    <message id="disk_installhelper_cancel">
        <source>Cancel</source>
        <translation>Cancel</translation>
    </message>
    <message id="disk_fullaccess_tip">
        <source>Allow Access</source>
        <translation>Allow Access</translation>
    </message>
    <message id="mount_failed_title">
        <source>The disk could not be mounted for reading and writing. The guide explains what to check.</source>
        <translation>The disk could not be mounted for reading and writing. The guide explains what to check.</translation>
    </message>
    <message id="mount_failed_checkdocument">
        <source>View Guide</source>
        <translation>View Guide</translation>
    </message>
    <message id="disk_repair_loading">
        <source>Repairing the disk…</source>
        <translation>Repairing the disk…</translation>
    </message>
    <message id="disk_repair_success">
        <source>Repair finished.</source>
        <translation>Repair finished.</translation>
    </message>
    <message id="disk_erase_title">
        <source>Erase this disk? All data on it will be deleted and cannot be recovered.</source>
        <translation>Erase this disk? All data on it will be deleted and cannot be recovered.</translation>
    </message>
    <message id="disk_erase_ok">
        <source>Erase</source>
        <translation>Erase</translation>
    </message>
    <message id="disk_erase_loading">
        <source>Erasing the disk…</source>
        <translation>Erasing the disk…</translation>
    </message>
    <message id="disk_erase_success">
        <source>The disk was erased.</source>
        <translation>The disk was erased.</translation>
    </message>
    <message id="diskrename_installhelper_tip">
        <source>Renaming a disk needs Vantrelo Helper. Download the helper installer now?</source>
        <translation>Renaming a disk needs Vantrelo Helper. Download the helper installer now?</translation>
    </message>
    <message id="diskrename_installhelper_updatetip">
        <source>Renaming a disk needs a newer version of Vantrelo Helper. Download the latest installer now?</source>
        <translation>Renaming a disk needs a newer version of Vantrelo Helper. Download the latest installer now?</translation>
    </message>
    <message id="diskrename_failed_tip">
        <source>The disk could not be renamed: %1</source>
        <translation>The disk could not be renamed: %1</translation>
    </message>
    <message id="diskrename_success_tip">
        <source>The disk was renamed. Eject it and connect it again to see the new name.</source>
        <translation>The disk was renamed. Eject it and connect it again to see the new name.</translation>
    </message>
    <message id="Alert_Ok">
        <source>OK</source>
        <translation>OK</translation>
    </message>
    <message id="rename_window_title">
        <source>Rename Disk</source>
        <translation>Rename Disk</translation>
    </message>
    <message id="rename_newname_input">
        <source>New name:</source>
        <translation>New name:</translation>
    </message>
    <message id="rename_error_empty">
        <source>Please enter a name.</source>
        <translation>Please enter a name.</translation>
    </message>
    <message id="permission_accessibility_title">
        <source>Vantrelo Helper needs permission to mount disks</source>
        <translation>Vantrelo Helper needs permission to mount disks</translation>
    </message>
    <message id="permission_accessibility_subtitle">
        <source>To mount NTFS disks for writing, the helper service must run with administrator rights. Open the guide to see how to enable it, then try again.</source>
        <translation>To mount NTFS disks for writing, the helper service must run with administrator rights. Open the guide to see how to enable it, then try again.</translation>
    </message>
    <message id="permission_accessibility_startAuth">
        <source>Open Guide</source>
        <translation>Open Guide</translation>
    </message>
</context>
</TS>
