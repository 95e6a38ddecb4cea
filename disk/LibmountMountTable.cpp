#include "disk/LibmountMountTable.h"

#include <libmount.h>

#include <memory>

namespace {

struct TableDeleter {
    void operator()(libmnt_table *table) const { mnt_unref_table(table); }
};
struct IterDeleter {
    void operator()(libmnt_iter *iter) const { mnt_free_iter(iter); }
};

QString text(const char *value) {
    return value ? QString::fromUtf8(value) : QString();
}

// A malformed line is skipped rather than failing the whole table.
int skipBadLine(libmnt_table *, const char *, int) {
    return 1;
}

} // namespace

LibmountMountTable::LibmountMountTable(QString mountInfoPath)
    : m_path(std::move(mountInfoPath)) {}

QList<MountEntry> LibmountMountTable::read() const {
    std::unique_ptr<libmnt_table, TableDeleter> table(mnt_new_table());
    std::unique_ptr<libmnt_iter, IterDeleter> iter(mnt_new_iter(MNT_ITER_FORWARD));
    if (!table || !iter)
        return {};
    mnt_table_set_parser_errcb(table.get(), skipBadLine);
    if (mnt_table_parse_file(table.get(), m_path.toLocal8Bit().constData()) != 0)
        return {};
    QList<MountEntry> entries;
    entries.reserve(mnt_table_get_nents(table.get()));
    libmnt_fs *fs = nullptr;
    while (mnt_table_next_fs(table.get(), iter.get(), &fs) == 0) {
        MountEntry entry;
        entry.id = mnt_fs_get_id(fs);
        entry.parentId = mnt_fs_get_parent_id(fs);
        entry.devno = mnt_fs_get_devno(fs);
        entry.source = text(mnt_fs_get_source(fs));
        entry.target = text(mnt_fs_get_target(fs));
        entry.fsType = text(mnt_fs_get_fstype(fs));
        entry.root = text(mnt_fs_get_root(fs));
        entry.options = text(mnt_fs_get_options(fs));
        entries.append(std::move(entry));
    }
    return entries;
}
