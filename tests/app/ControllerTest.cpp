#include "tests/app/ControllerTest.h"

#include <QDir>
#include <fstream>

#include "platform/Text.h"

namespace fs = std::filesystem;

namespace {

// One server for all tests of a program; it ends with the program.
PersonalStorage &storage() {
    static PersonalStorage server;
    return server;
}

fs::path folderFromEnvironment(const char *name) {
    return qEnvironmentVariable(name).toStdString();
}

}  // namespace

void ExpectedAlerts::expect(const QString &title, const QString &message, int answer,
                            std::function<void()> during) {
    expected_.push_back({title, message, answer, std::move(during)});
}

int ExpectedAlerts::run(const QString &title, const QString &message, const QStringList &buttons,
                        int defaultOne) {
    defaultButton = defaultOne;
    if (expected_.empty()) {
        ADD_FAILURE() << "unexpected alert: " << qPrintable(title) << " / " << qPrintable(message);
        return static_cast<int>(buttons.size()) - 1;
    }
    const Expected expected = expected_.front();
    expected_.pop_front();
    EXPECT_EQ(title.toStdString(), expected.title.toStdString());
    const QString known = expected.message.endsWith(u'*') ? expected.message.chopped(1) : message;
    EXPECT_TRUE(message.startsWith(known) && expected.message.startsWith(known))
        << qPrintable(message) << " instead of " << qPrintable(expected.message);
    if (expected.during) expected.during();
    return expected.answer;
}

ControllerTest::ControllerTest()
    : home(folderFromEnvironment("HOME") / "user"),
      htdocs(folderFromEnvironment("XDG_DATA_HOME") / "quillery" / "htdocs") {
    fs::remove_all(home);
    fs::create_directories(home);
    if (fs::exists(htdocs)) {
        for (const auto &file : fs::directory_iterator(htdocs)) fs::remove_all(file);
    }
    for (const char *key : {"kIsNotFirstUse", "kAutoLogin", "kUsername", "kPassword", "kHasPasscode",
                            "kPasscode", "kOpenAtLaunch"}) {
        defaults.setObject(std::nullopt, QLatin1String(key));
    }
}

ControllerTest::~ControllerTest() {
    settle();
    delegate.reset();
    EXPECT_EQ(alerts.outstanding(), 0U) << "an expected alert did not come";
}

void ControllerTest::setAutoLogin(const QString &user) {
    setNotFirstUse();
    set("kAutoLogin", QStringLiteral("Yes"));
    set("kUsername", user);
    set("kPassword", QStringLiteral("secret"));
}

AppDelegate &ControllerTest::start() {
    delegate.reset();
    delegate = std::make_unique<AppDelegate>(Shell{
        ui, gate, background, waiting, alerts, pasteboard, defaults, notifications, workspace, loginItem,
        configuration, home,
        [](const std::stop_token &stop) { return storage().ensureRunning(QUILLERY_STORAGE_PROGRAM, stop); }});
    gate.enter([this] { delegate->applicationDidFinishLaunching(); });
    return *delegate;
}

void ControllerTest::copy(const std::string &text) {
    ASSERT_TRUE(pasteboard.setString(text));
}

void ControllerTest::save(const std::string &text) {
    copy(text);
    delegate->interface.Saveing_menu_item->trigger();
    settle();
}

void ControllerTest::pick(int index) {
    const auto *list = delegate->interface.Clipboard_saved_string_combobox;
    const std::string text(list->itemAtIndex(static_cast<std::size_t>(index)));
    Q_EMIT delegate->interface.Clipboard_saved_string_combobox->picked(index, text);
}

bool ControllerTest::isEnabled(const char *menuItem) {
    for (const QAction *action : i().Quillery_Menu.actions())
        if (action->objectName() == QLatin1String(menuItem)) return action->isEnabled();
    ADD_FAILURE() << menuItem;
    return false;
}

std::vector<std::string> ControllerTest::items() const {
    std::vector<std::string> texts;
    const auto *list = delegate->interface.Clipboard_saved_string_combobox;
    for (std::size_t i = 0; i < list->numberOfItems(); ++i) texts.emplace_back(list->itemAtIndex(i));
    return texts;
}

void ControllerTest::putLocal(const std::string &bytes) const {
    fs::create_directories(localPath().parent_path());
    std::ofstream(localPath(), std::ios::binary) << bytes;
}

std::optional<std::string> ControllerTest::remote(const std::string &name) const {
    return FileManager().textAtPath(htdocs / name).text;
}

void ControllerTest::putRemote(const std::string &name, const std::string &bytes) const {
    fs::create_directories(htdocs);
    std::ofstream(htdocs / name, std::ios::binary) << bytes;
}

std::string ControllerTest::clipboard() {
    return pasteboard.stringForType().text;
}
