#include "platform/Pasteboard.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>
#include <optional>

#include "platform/Text.h"
#include "platform/UiThread.h"
#include "platform/Waiting.h"

namespace {

PasteboardText textOf(const QMimeData *data) {
    if (!data || !data->hasText()) return {};
    return {PasteboardText::State::kText, toUtf8(data->text())};
}

// What can be told without asking another program: this program's own text, or all that a desktop other than
// X11 shows. Nothing if another program has to be asked. UI thread.
std::optional<PasteboardText> ownText() {
    const QClipboard &clipboard = *QGuiApplication::clipboard();
    if (clipboard.ownsClipboard()) return textOf(clipboard.mimeData());
    if (QGuiApplication::platformName() == u"xcb") return std::nullopt;
    // Wayland shows the clipboard to the program with the keyboard focus alone.
    if (!QGuiApplication::focusWindow()) return PasteboardText{PasteboardText::State::kNoAccess, {}};
    return textOf(clipboard.mimeData());
}

}  // namespace

PasteboardText DesktopPasteboard::stringForType() {
    if (auto own = ui_.run(ownText)) return *own;
    if (!ui_.isCurrent()) return readXSelection(kOwnerLimit);
    return waiting_.run(QCoreApplication::translate("Pasteboard", "Asking for the copied text…"),
                        [](std::stop_token stop) { return readXSelection(kOwnerLimit, std::move(stop)); });
}

bool DesktopPasteboard::setString(const std::string &text) {
    auto *data = new QMimeData;  // the clipboard takes it over
    data->setText(toQString(text));
    QClipboard &clipboard = *QGuiApplication::clipboard();
    clipboard.setMimeData(data);
    return clipboard.ownsClipboard();
}
