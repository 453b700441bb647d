#include "ExclusiveFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryFile>

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <cerrno>

ExclusiveWrite writeExclusively(const QString &path, const QByteArray &bytes,
                                QFileDevice::Permissions permissions) {
    const QFileInfo target(path);
    // Hidden, and not ending as the target does, so no reader of the
    // directory takes it for one of its files.
    QTemporaryFile file(
        target.dir().filePath(u'.' + target.fileName() + QStringLiteral(".XXXXXX")));
    if (!file.open() || file.write(bytes) != bytes.size() || !file.flush() ||
        ::fsync(file.handle()) != 0 || !file.setPermissions(permissions)) {
        return ExclusiveWrite::Failed;
    }
    file.close();
    const QByteArray from = QFile::encodeName(file.fileName());
    const QByteArray to = QFile::encodeName(path);
    if (::renameat2(AT_FDCWD, from.constData(), AT_FDCWD, to.constData(), RENAME_NOREPLACE) == 0) {
        file.setAutoRemove(false);  // the name is the target's now
        return ExclusiveWrite::Written;
    }
    // File systems without RENAME_NOREPLACE: link() refuses an existing name
    // just as well, and the temporary name goes with the file object.
    if ((errno == EINVAL || errno == ENOSYS) && ::link(from.constData(), to.constData()) == 0) {
        return ExclusiveWrite::Written;
    }
    return errno == EEXIST ? ExclusiveWrite::NameTaken : ExclusiveWrite::Failed;
}
