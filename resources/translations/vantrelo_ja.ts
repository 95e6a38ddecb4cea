<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="ja_JP">
<context>
    <name></name>
    <message id="menu_home">
        <source>Open Vantrelo</source>
        <translation>Vantrelo を開く</translation>
    </message>
    <message id="disk_action_ejectAll">
        <source>Eject All Disks</source>
        <translation>すべてのディスクを取り出す</translation>
    </message>
    <message id="menu_launch">
        <source>Launch at Login</source>
        <translation>ログイン時に起動</translation>
    </message>
    <message id="menu_launch_on">
        <source>On</source>
        <translation>オン</translation>
    </message>
    <message id="menu_launch_off">
        <source>Off</source>
        <translation>オフ</translation>
    </message>
    <message id="menu_faq">
        <source>Help &amp; FAQ</source>
        <translation>ヘルプとよくある質問</translation>
    </message>
    <message id="menu_feedback">
        <source>Send Feedback…</source>
        <translation>フィードバックを送信…</translation>
    </message>
    <message id="menu_checkupdate">
        <source>Check for Updates…</source>
        <translation>アップデートを確認…</translation>
    </message>
    <message id="menu_quit">
        <source>Quit Vantrelo</source>
        <translation>Vantrelo を終了</translation>
    </message>
    <message id="disk_internal">
        <source>Internal Disks</source>
        <translation>内蔵ディスク</translation>
    </message>
    <message id="disk_external">
        <source>External Disks</source>
        <translation>外部ディスク</translation>
    </message>
    <message id="disk_info_device">
        <source>Device</source>
        <translation>デバイス</translation>
    </message>
    <message id="disk_info_mountpath">
        <source>Mount Point</source>
        <translation>マウントポイント</translation>
    </message>
    <message id="disk_info_format">
        <source>Format</source>
        <translation>フォーマット</translation>
    </message>
    <message id="disk_info_permission">
        <source>Permission</source>
        <translation>アクセス権</translation>
    </message>
    <message id="disk_permission_readwrite">
        <source>Read &amp; Write</source>
        <translation>読み出し/書き込み</translation>
    </message>
    <message id="disk_permission_readonly">
        <source>Read Only</source>
        <translation>読み出し専用</translation>
    </message>
    <message id="disk_totalsize_freesize">
        <source>%1 free of %2</source>
        <translation>空き容量 %1（全体 %2）</translation>
    </message>
    <message id="disk_action_open">
        <source>Open</source>
        <translation>開く</translation>
    </message>
    <message id="disk_action_openrw">
        <source>Open Read/Write</source>
        <translation>読み書き可能で開く</translation>
    </message>
    <message id="disk_action_eject">
        <source>Eject</source>
        <translation>取り出す</translation>
    </message>
    <message id="disk_action_repair">
        <source>Repair</source>
        <translation>修復</translation>
    </message>
    <message id="disk_action_erase">
        <source>Erase</source>
        <translation>消去</translation>
    </message>
    <message id="disk_installhelper_tip">
        <source>To write to NTFS disks, Vantrelo needs Vantrelo Helper and the NTFS-3G driver. Download the helper installer now?</source>
        <translation>NTFS ディスクに書き込むには、Vantrelo Helper と NTFS-3G ドライバが必要です。ヘルパーのインストーラを今すぐダウンロードしますか？</translation>
    </message>
    <message id="disk_installhelper_install">
        <source>Download</source>
        <translation>ダウンロード</translation>
    </message>
    <message id="disk_installhelper_cancel">
        <source>Cancel</source>
        <translation>キャンセル</translation>
    </message>
    <message id="disk_fullaccess_tip">
        <source>Allow Access</source>
        <translation>アクセスを許可</translation>
    </message>
    <message id="mount_failed_title">
        <source>The disk could not be mounted for reading and writing. The guide explains what to check.</source>
        <translation>ディスクを読み書き可能な状態でマウントできませんでした。確認すべき点はガイドをご覧ください。</translation>
    </message>
    <message id="mount_failed_checkdocument">
        <source>View Guide</source>
        <translation>ガイドを見る</translation>
    </message>
    <message id="disk_repair_loading">
        <source>Repairing the disk…</source>
        <translation>ディスクを修復しています…</translation>
    </message>
    <message id="disk_repair_success">
        <source>Repair finished.</source>
        <translation>修復が完了しました。</translation>
    </message>
    <message id="disk_erase_title">
        <source>Erase this disk? All data on it will be deleted and cannot be recovered.</source>
        <translation>このディスクを消去しますか？ディスク上のすべてのデータが削除され、元に戻すことはできません。</translation>
    </message>
    <message id="disk_erase_ok">
        <source>Erase</source>
        <translation>消去</translation>
    </message>
    <message id="disk_erase_loading">
        <source>Erasing the disk…</source>
        <translation>ディスクを消去しています…</translation>
    </message>
    <message id="disk_erase_success">
        <source>The disk was erased.</source>
        <translation>ディスクを消去しました。</translation>
    </message>
    <message id="diskrename_installhelper_tip">
        <source>Renaming a disk needs Vantrelo Helper. Download the helper installer now?</source>
        <translation>ディスクの名前を変更するには Vantrelo Helper が必要です。ヘルパーのインストーラを今すぐダウンロードしますか？</translation>
    </message>
    <message id="diskrename_installhelper_updatetip">
        <source>Renaming a disk needs a newer version of Vantrelo Helper. Download the latest installer now?</source>
        <translation>ディスクの名前を変更するには、新しいバージョンの Vantrelo Helper が必要です。最新のインストーラを今すぐダウンロードしますか？</translation>
    </message>
    <message id="diskrename_failed_tip">
        <source>The disk could not be renamed: %1</source>
        <translation>ディスクの名前を変更できませんでした：%1</translation>
    </message>
    <message id="diskrename_success_tip">
        <source>The disk was renamed. Eject it and connect it again to see the new name.</source>
        <translation>ディスクの名前を変更しました。新しい名前を表示するには、ディスクを取り出してから接続し直してください。</translation>
    </message>
    <message id="Alert_Ok">
        <source>OK</source>
        <translation>OK</translation>
    </message>
    <message id="rename_window_title">
        <source>Rename Disk</source>
        <translation>ディスクの名前を変更</translation>
    </message>
    <message id="rename_newname_input">
        <source>New name:</source>
        <translation>新しい名前：</translation>
    </message>
    <message id="rename_error_empty">
        <source>Please enter a name.</source>
        <translation>名前を入力してください。</translation>
    </message>
    <message id="permission_accessibility_title">
        <source>Vantrelo Helper needs permission to mount disks</source>
        <translation>Vantrelo Helper にディスクをマウントする権限が必要です</translation>
    </message>
    <message id="permission_accessibility_subtitle">
        <source>To mount NTFS disks for writing, the helper service must run with administrator rights. Open the guide to see how to enable it, then try again.</source>
        <translation>NTFS ディスクを書き込み可能な状態でマウントするには、ヘルパーサービスを管理者権限で実行する必要があります。ガイドで有効にする方法を確認してから、もう一度お試しください。</translation>
    </message>
    <message id="permission_accessibility_startAuth">
        <source>Open Guide</source>
        <translation>ガイドを開く</translation>
    </message>
</context>
</TS>
