<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="zh_CN">
<context>
    <name></name>
    <message id="menu_home">
        <source>Open Vantrelo</source>
        <translation>打开 Vantrelo</translation>
    </message>
    <message id="disk_action_ejectAll">
        <source>Eject All Disks</source>
        <translation>推出所有磁盘</translation>
    </message>
    <message id="menu_launch">
        <source>Launch at Login</source>
        <translation>登录时启动</translation>
    </message>
    <message id="menu_launch_on">
        <source>On</source>
        <translation>开启</translation>
    </message>
    <message id="menu_launch_off">
        <source>Off</source>
        <translation>关闭</translation>
    </message>
    <message id="menu_faq">
        <source>Help &amp; FAQ</source>
        <translation>帮助与常见问题</translation>
    </message>
    <message id="menu_feedback">
        <source>Send Feedback…</source>
        <translation>发送反馈…</translation>
    </message>
    <message id="menu_checkupdate">
        <source>Check for Updates…</source>
        <translation>检查更新…</translation>
    </message>
    <message id="menu_quit">
        <source>Quit Vantrelo</source>
        <translation>退出 Vantrelo</translation>
    </message>
    <message id="disk_internal">
        <source>Internal Disks</source>
        <translation>内置磁盘</translation>
    </message>
    <message id="disk_external">
        <source>External Disks</source>
        <translation>外置磁盘</translation>
    </message>
    <message id="disk_info_device">
        <source>Device</source>
        <translation>设备</translation>
    </message>
    <message id="disk_info_mountpath">
        <source>Mount Point</source>
        <translation>挂载点</translation>
    </message>
    <message id="disk_info_format">
        <source>Format</source>
        <translation>格式</translation>
    </message>
    <message id="disk_info_permission">
        <source>Permission</source>
        <translation>权限</translation>
    </message>
    <message id="disk_permission_readwrite">
        <source>Read &amp; Write</source>
        <translation>可读写</translation>
    </message>
    <message id="disk_permission_readonly">
        <source>Read Only</source>
        <translation>只读</translation>
    </message>
    <message id="disk_totalsize_freesize">
        <source>%1 free of %2</source>
        <translation>可用 %1，共 %2</translation>
    </message>
    <message id="disk_action_open">
        <source>Open</source>
        <translation>打开</translation>
    </message>
    <message id="disk_action_openrw">
        <source>Open Read/Write</source>
        <translation>以读写方式打开</translation>
    </message>
    <message id="disk_action_eject">
        <source>Eject</source>
        <translation>推出</translation>
    </message>
    <message id="disk_action_repair">
        <source>Repair</source>
        <translation>修复</translation>
    </message>
    <message id="disk_action_erase">
        <source>Erase</source>
        <translation>抹掉</translation>
    </message>
    <message id="disk_installhelper_tip">
        <source>To write to NTFS disks, Vantrelo needs Vantrelo Helper and the NTFS-3G driver. Download the helper installer now?</source>
        <translation>要写入 NTFS 磁盘，Vantrelo 需要 Vantrelo Helper 和 NTFS-3G 驱动程序。现在下载助手安装程序吗？</translation>
    </message>
    <message id="disk_installhelper_install">
        <source>Download</source>
        <translation>下载</translation>
    </message>
    <message id="disk_installhelper_cancel">
        <source>Cancel</source>
        <translation>取消</translation>
    </message>
    <message id="disk_fullaccess_tip">
        <source>Allow Access</source>
        <translation>允许访问</translation>
    </message>
    <message id="mount_failed_title">
        <source>The disk could not be mounted for reading and writing. The guide explains what to check.</source>
        <translation>无法以读写方式挂载此磁盘。请查看指南，了解需要检查的事项。</translation>
    </message>
    <message id="mount_failed_checkdocument">
        <source>View Guide</source>
        <translation>查看指南</translation>
    </message>
    <message id="disk_repair_loading">
        <source>Repairing the disk…</source>
        <translation>正在修复磁盘…</translation>
    </message>
    <message id="disk_repair_success">
        <source>Repair finished.</source>
        <translation>修复完成。</translation>
    </message>
    <message id="disk_erase_title">
        <source>Erase this disk? All data on it will be deleted and cannot be recovered.</source>
        <translation>要抹掉此磁盘吗？磁盘上的所有数据都将被删除，且无法恢复。</translation>
    </message>
    <message id="disk_erase_ok">
        <source>Erase</source>
        <translation>抹掉</translation>
    </message>
    <message id="disk_erase_loading">
        <source>Erasing the disk…</source>
        <translation>正在抹掉磁盘…</translation>
    </message>
    <message id="disk_erase_success">
        <source>The disk was erased.</source>
        <translation>磁盘已抹掉。</translation>
    </message>
    <message id="diskrename_installhelper_tip">
        <source>Renaming a disk needs Vantrelo Helper. Download the helper installer now?</source>
        <translation>重命名磁盘需要 Vantrelo Helper。现在下载助手安装程序吗？</translation>
    </message>
    <message id="diskrename_installhelper_updatetip">
        <source>Renaming a disk needs a newer version of Vantrelo Helper. Download the latest installer now?</source>
        <translation>重命名磁盘需要更新版本的 Vantrelo Helper。现在下载最新的安装程序吗？</translation>
    </message>
    <message id="diskrename_failed_tip">
        <source>The disk could not be renamed: %1</source>
        <translation>无法重命名磁盘：%1</translation>
    </message>
    <message id="diskrename_success_tip">
        <source>The disk was renamed. Eject it and connect it again to see the new name.</source>
        <translation>磁盘已重命名。请推出磁盘并重新连接，以显示新名称。</translation>
    </message>
    <message id="Alert_Ok">
        <source>OK</source>
        <translation>好</translation>
    </message>
    <message id="rename_window_title">
        <source>Rename Disk</source>
        <translation>重命名磁盘</translation>
    </message>
    <message id="rename_newname_input">
        <source>New name:</source>
        <translation>新名称：</translation>
    </message>
    <message id="rename_error_empty">
        <source>Please enter a name.</source>
        <translation>请输入名称。</translation>
    </message>
    <message id="permission_accessibility_title">
        <source>Vantrelo Helper needs permission to mount disks</source>
        <translation>Vantrelo Helper 需要挂载磁盘的权限</translation>
    </message>
    <message id="permission_accessibility_subtitle">
        <source>To mount NTFS disks for writing, the helper service must run with administrator rights. Open the guide to see how to enable it, then try again.</source>
        <translation>助手服务必须以管理员权限运行，才能以可写方式挂载 NTFS 磁盘。请打开指南了解启用方法，然后重试。</translation>
    </message>
    <message id="permission_accessibility_startAuth">
        <source>Open Guide</source>
        <translation>打开指南</translation>
    </message>
</context>
</TS>
