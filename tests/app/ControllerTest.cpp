#include "tests/app/ControllerTest.h"

#include <sys/stat.h>

#include <QTest>
#include <fstream>
#include <map>

#include "platform/UserFolders.h"
#include "tests/support/TemporaryFolder.h"

namespace fs = std::filesystem;

namespace {

void type(std::initializer_list<std::pair<QLineEdit *, QString>> fields) {
    for (const auto &[field, text] : fields) field->setText(text);
}

}  // namespace

int ExpectedAlerts::run(const QString &title, const QString &message, const QStringList &buttons,
                        int defaultOne) {
    defaultButton = defaultOne;
    if (expected_.empty()) {
        ADD_FAILURE() << "unexpected alert: " << qPrintable(title) << " / " << qPrintable(message);
        return static_cast<int>(buttons.size()) - 1;
    }
    const Alert expected = expected_.front();
    expected_.pop_front();
    EXPECT_EQ(title.toStdString(), expected.title.toStdString());
    const bool isSame = expected.message.endsWith(u'*') ? message.startsWith(expected.message.chopped(1))
                                                        : message == expected.message;
    EXPECT_TRUE(isSame) << qPrintable(message) << " instead of " << qPrintable(expected.message);
    if (expected.during) expected.during();
    return expected.answer;
}

ControllerTest::ControllerTest(std::chrono::milliseconds patience)
    : home(fs::path(qEnvironmentVariable("HOME").toStdString()) / "user"),
      htdocs(dataFolder() / "quillery" / "htdocs"),
      rescued(stateFolder() / "quillery" / "rescued"),
      waiting(ui, nullptr, patience) {
    umask(0);  // what is private has to be so by itself
    for (const fs::path &left : {home, rescued, configurationFolder() / "autostart"}) fs::remove_all(left);
    fs::create_directories(home);
    if (fs::exists(htdocs)) {
        for (const auto &file : fs::directory_iterator(htdocs)) fs::remove_all(file);
    }
    for (const char *key :
         {"kAutoLogin", "kUsername", "kPassword", "kHasPasscode", "kPasscode", "kOpenAtLaunch"}) {
        defaults.setObject(std::nullopt, QLatin1String(key));
    }
    set("kIsNotFirstUse", "YES");
    configuration.pausesBetweenReads = {std::chrono::milliseconds(1), std::chrono::milliseconds(1)};
}

ControllerTest::~ControllerTest() {
    settle();
    delegate.reset();
    EXPECT_EQ(alerts.outstanding(), 0U) << "an expected alert did not come";
}

void ControllerTest::setAutoLogin(const QString &user) {
    set("kAutoLogin", "Yes");
    set("kUsername", user);
    set("kPassword", "secret");
}

void ControllerTest::useScriptedServer(Faults faults) {
    settle();
    delegate.reset();
    server = std::make_unique<ScriptedFtpServer>(std::move(faults));
    configuration.storageHost = "127.0.0.1";
    configuration.storagePort = server->port();
}

AppDelegate &ControllerTest::start() {
    static PersonalStorage storage;  // one for all tests of a program, which ends with the program
    delegate.reset();
    delegate = std::make_unique<AppDelegate>(Shell{
        ui, gate, background, waiting, alerts, pasteboard, defaults, notifications, workspace, loginItem,
        configuration, home,
        [](const std::stop_token &stop) { return storage.ensureRunning(QUILLERY_STORAGE_PROGRAM, stop); }});
    gate.enter([this] { delegate->applicationDidFinishLaunching(); });
    return *delegate;
}

void ControllerTest::save(const std::string &text) {
    copy(text);
    i().Saveing_menu_item->trigger();
    settle();
}

void ControllerTest::pick(int index) {
    Q_EMIT list().picked(index, std::string(list().itemAtIndex(static_cast<std::size_t>(index))));
}

void ControllerTest::signUp(const QString &user, const QString &password) {
    i().Open_sign_up_view->trigger();
    type({{i().Sign_up_Fullname, "Alice A"}, {i().Sign_up_username, user}, {i().Sign_up_email, "a@b.c"}});
    type({{i().Sign_up_password, password}, {i().Sign_up_re_password, password}});
    QTest::keyClick(i().Sign_up_re_password, Qt::Key_Return);
    settle();
}

void ControllerTest::signIn(const QString &user, const QString &password) {
    i().Open_sign_in_window->trigger();
    type({{i().Sign_in_username, user}, {i().Sign_in_password, password}});
    QTest::keyClick(i().Sign_in_password, Qt::Key_Return);
}

void ControllerTest::changePassword(const QString &old, const QString &next, const QString &again) {
    i().changePasswordItem->trigger();
    type({{i().Change_old_password, old}, {i().Change_new_password, next}});
    type({{i().Change_retype_password, again}});
    i().Change_done_button->click();
}

void ControllerTest::addFriend(const QString &name) {
    i().Add_contact_menu_item->trigger();
    settle();
    type({{i().Add_contact_textfield, name}});
    QTest::keyClick(i().Add_contact_textfield, Qt::Key_Return);
    settle();
}

void ControllerTest::pickFriend(int row) {
    i().Contacts_table->setCurrentIndex(i().Contacts_table->model()->index(row, 0));
    QTest::keyClick(i().Contacts_table, Qt::Key_Return);
    settle();
}

// The control or the item of the menu with that name.
template <class Kind>
static Kind *named(const QString &name) {
    for (QWidget *window : QApplication::topLevelWidgets()) {
        if (auto *it = qobject_cast<Kind *>(window); it && it->objectName() == name) return it;
        if (auto *it = window->findChild<Kind *>(name)) return it;
    }
    ADD_FAILURE() << "there is no " << qPrintable(name);
    return nullptr;
}

static std::string decoded(const QString &text) {
    if (text == "-") return {};
    return QString(text)
        .replace("\\n", "\n")
        .replace("\\r", "\r")
        .replace("|", QString::fromStdString(kEnd))
        .toStdString();
}

static QString encoded(const std::optional<std::string> &text) {
    if (!text) return "(none)";
    if (text->empty()) return "-";
    return QString::fromStdString(*text).replace(QString::fromStdString(kEnd), "|").replace("\n", "\\n");
}

void ControllerTest::play(const char *scenario) {
    for (const QString &whole : QString::fromUtf8(scenario).split('\n')) {
        const QString line = whole.trimmed();
        if (line.isEmpty()) continue;
        SCOPED_TRACE(line.toStdString());
        if (line.startsWith("! ")) {
            const QString message = line.section(": ", 1).section(" => ", 0, 0);
            alerts.expect({{line.mid(2).section(": ", 0, 0), message.toUtf8().replace("\\n", "\n"),
                            line.section(" => ", 1).toInt()}});
            continue;
        }
        act(line.section(" -> ", 0, 0).trimmed());
        settle();
        EXPECT_EQ(alerts.outstanding(), 0U) << "an expected alert did not come";
        for (const QString &seen : line.section(" -> ", 1).split("; ", Qt::SkipEmptyParts))
            EXPECT_EQ(see(seen.section('=', 0, 0)).toStdString(), seen.section('=', 1).toStdString())
                << qPrintable(seen);
    }
}

void ControllerTest::act(const QString &line) {
    const QString verb = line.section(' ', 0, 0), rest = line.section(' ', 1);
    QStringList words = rest.split(' ');
    for (QString &word : words) word = QString::fromStdString(decoded(word));
    const std::string value = decoded(line.section(' ', 2)), text = decoded(rest);
    const std::map<QString, std::function<void()>> actions = {
        {"start", [&] { start(); }},
        {"open", [&] { openList(); }},
        {"settle", [] {}},
        {"close", [&] { i().Quillery_window->close(); }},
        {"save", [&] { save(text); }},
        {"copy", [&] { copy(text); }},
        {"hot-key", [&] { delegate->Save_bar_item(VkKeyEvent()); }},
        {"click-notification", [&] { Q_EMIT notifications.activated({}); }},
        {"pick", [&] { pick(rest.toInt()); }},
        {"pick-friend", [&] { pickFriend(rest.toInt()); }},
        {"click", [&] { named<QAbstractButton>(rest)->click(); }},
        {"toggle", [&] { named<QAbstractButton>(rest)->toggle(); }},  // as an assistive program does
        {"menu", [&] { named<QAction>(rest)->trigger(); }},
        {"type", [&] { named<QLineEdit>(words[0])->setText(QString::fromStdString(value)); }},
        {"enter",
         [&] {
             named<QLineEdit>(words[0])->setText(QString::fromStdString(value));
             QTest::keyClick(named<QLineEdit>(words[0]), Qt::Key_Return);
         }},
        {"send",
         [&] {
             for (const QString &field : words.sliced(1))
                 named<QLineEdit>(field.section('=', 0, 0))->setText(field.section('=', 1));
             named<QAbstractButton>(words[0])->click();
         }},
        {"sign-up", [&] { signUp(words[0], words[1]); }},
        {"sign-in", [&] { signIn(words[0], words[1]); }},
        {"change-password", [&] { changePassword(words[0], words[1], words[1]); }},
        {"add-from", [&] { delegate->Contact_index_number = rest.toInt(); }},
        {"add-friend", [&] { addFriend(words[0]); }},
        {"request",
         [&] {
             delegate->performRequest(text, [this](const SingleInstance::Answer &answer) {
                 answers << QString::number(answer.status) + QString::fromStdString(answer.words);
             });
         }},
        {"local", [&] { putLocal(text); }},
        {"remote", [&] { putRemote(words[0].toStdString(), value); }},
        {"spoil", [&] { putRemote(words[0].toStdString(), "not \xFF text"); }},
        {"account", [&] { putAccount(words[0].toStdString()); }},
        {"lose",
         [&] { rest == "local" ? (void)fs::remove(localPath()) : putRemote(rest.toStdString(), {}); }},
        {"set", [&] { set(words[0].toLatin1(), QString::fromStdString(value)); }},
    };
    ASSERT_TRUE(actions.contains(verb)) << "no such action";
    actions.at(verb)();
}

QString ControllerTest::see(const QString &what) {
    const auto yes = [](bool is) { return QString(is ? "yes" : "no"); };
    const QString verb = what.section(' ', 0, 0), name = what.section(' ', 1);
    const auto joined = [](const Items &texts) {
        std::string all;
        for (const std::string &text : texts) all += kEnd + text;
        return encoded(texts.empty() ? std::nullopt : std::optional(all.substr(kEnd.size())));
    };
    if (verb == "list") return joined(items());
    if (verb == "friends") return joined(friends());
    if (verb == "local") return encoded(local());
    if (verb == "remote") return encoded(remote(name.toStdString()));
    if (verb == "clipboard") return encoded(clipboard());
    if (verb == "picked") return encoded(list().stringValue());
    if (verb == "told") return notifications.texts.join('+');
    if (verb == "answers") return answers.join('+');
    if (verb == "setting") return encoded(stored(name.toLatin1()).toStdString());
    if (verb == "view") return i().Quillery_window->isVisible() ? shownView()->objectName() : "hidden";
    if (verb == "default") return QString::number(alerts.defaultButton);
    if (verb == "title") return i().Quillery_window->windowTitle();
    if (verb == "next") return QString::number(delegate->Contact_index_number);
    if (verb == "user") return encoded(delegate->Username);
    if (verb == "password") return encoded(delegate->Password);
    if (verb == "signed-in") return yes(delegate->isSigned_in);
    if (verb == "mode")
        return QString(delegate->RemoveMode_enabled  ? "remove"
                       : delegate->ShareMode_enabled ? "share"
                       : delegate->Read_Local_mode   ? "offline"
                                                     : "copy") +
               (delegate->RemoveContact_enabled ? "+friends" : "");
    if (verb == "shown") return yes(named<QWidget>(name)->isVisible());
    if (verb == "enabled") return yes(named<QWidget>(name)->isEnabled());
    if (verb == "hides") return yes(named<QLineEdit>(name)->echoMode() == QLineEdit::Password);
    if (verb == "checked") return yes(named<QAbstractButton>(name)->isChecked());
    // Otherwise what a control says.
    return encoded(named<QWidget>(verb)->property("text").toString().toStdString());
}

Items ControllerTest::items() {
    Items texts;
    for (std::size_t k = 0; k < list().numberOfItems(); ++k) texts.emplace_back(list().itemAtIndex(k));
    return texts;
}

Items ControllerTest::friends() {
    Items names;
    const QAbstractItemModel &rows = *i().Contacts_table->model();
    for (int row = 0; row < rows.rowCount(); ++row)
        names.push_back(rows.index(row, 0).data().toString().toStdString());
    return names;
}

void ControllerTest::putLocal(const std::string &bytes) const {
    fs::create_directories(localPath().parent_path());
    std::ofstream(localPath(), std::ios::binary) << bytes;
}

std::optional<std::string> ControllerTest::remote(const std::string &name) const {
    return server ? server->file("htdocs/" + name) : FileManager().textAtPath(htdocs / name).text;
}

void ControllerTest::putRemote(const std::string &name, const std::optional<std::string> &bytes) const {
    if (server) {
        server->setFile("htdocs/" + name, bytes.value());
    } else if (bytes) {
        fs::create_directories(htdocs);
        std::ofstream(htdocs / name, std::ios::binary) << *bytes;
    } else {
        fs::remove(htdocs / name);
    }
}

void ControllerTest::putAccount(const std::string &user, const std::string &password) const {
    putRemote(user + "_Username.txt", user);
    putRemote(user + "_Password.txt", password);
}

Items ControllerTest::copies() const {
    Items texts;
    std::error_code none;
    for (const auto &file : fs::directory_iterator(rescued, none)) texts.push_back(contentOf(file.path()));
    return texts;
}
