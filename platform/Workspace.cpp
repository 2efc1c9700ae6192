#include "platform/Workspace.h"

#include <sys/stat.h>

#include <QDesktopServices>

bool DesktopWorkspace::openURL(const QUrl &url) {
    const mode_t own = umask(usersMask_);
    const bool opened = QDesktopServices::openUrl(url);
    umask(own);
    return opened;
}
