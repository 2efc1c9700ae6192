#include "app/Interface.h"

#include <QApplication>
#include <QDir>
#include <QImageReader>
#include <QScreen>
#include <QVBoxLayout>

#include "app/RescuedLists.h"
#include "platform/UiIds.h"
#include "platform/UserFolders.h"

namespace {

constexpr int kQuickViewWidth = 428;  // the width of the list it belongs to
constexpr int kQuickViewHeight = 150;
constexpr int kTitleBar = 28;  // what a window manager commonly adds on top
constexpr double kTitleScale = 1.3;
constexpr int kMargin = 16;  // between a window and the edge of the screen

// A view of its own, filled from one interface file.
template <class File>
QWidget *view(File &file, QWidget &owner) {
    auto *widget = new QWidget(&owner);
    file.setupUi(widget);
    widget->hide();
    return widget;
}

template <class File>
std::unique_ptr<QWidget> window(File &file) {
    auto widget = std::make_unique<QWidget>(nullptr, Qt::Window);
    file.setupUi(widget.get());
    if (widget->testAttribute(Qt::WA_Resized)) widget->setProperty("usualSize", widget->size());
    return widget;
}

// The button's title is the form's message line: nothing of it may be cut off.
void makeWideEnoughFor(QPushButton &button, std::initializer_list<QString> titles) {
    const QString title = button.text();
    int width = button.sizeHint().width();
    for (const QString &other : titles) {
        button.setText(other);
        width = std::max(width, button.sizeHint().width());
    }
    button.setText(title);
    button.setMinimumWidth(width);
}

// A label beside a control looks disabled with it.
class LabelOf : public QObject {
  public:
    LabelOf(QWidget &control, QWidget &label) : QObject(&label), control_(control), label_(label) {
        control.installEventFilter(this);
        label.setEnabled(control.isEnabled());
    }
    bool eventFilter(QObject *watched, QEvent *event) override {
        if (watched == &control_ && event->type() == QEvent::EnabledChange)
            label_.setEnabled(control_.isEnabled());
        return QObject::eventFilter(watched, event);
    }

  private:
    QWidget &control_;
    QWidget &label_;
};

// Buttons below fields are pressed by Enter while they have the focus.
void makeEnterPress(QWidget &root) {
    for (QPushButton *button : root.findChildren<QPushButton *>()) button->setAutoDefault(true);
}

}  // namespace

Interface::Interface() {
    Ui::QuilleryWindow &panel = *this;
    Ui::IntroWindow &intro = *this;
    Ui::WindowedMode &windowed = *this;
    Quillery_window = window(panel);
    Intro_window = window(intro);
    Windowed_mode = window(windowed);
    Checking_for_connection_view = view<Ui::CheckingView>(*this, windows_);
    List_View = view<Ui::ListView>(*this, windows_);
    Insert_passcode_view = view<Ui::InsertPasscodeView>(*this, windows_);
    Sign_in_view = view<Ui::SignInView>(*this, windows_);
    Sign_up_view = view<Ui::SignUpView>(*this, windows_);
    Add_contact_view = view<Ui::AddContactView>(*this, windows_);
    Contacts_view = view<Ui::ContactsView>(*this, windows_);
    Contacts_View = view<Ui::FriendsView>(*this, windows_);
    Preference_View = view<Ui::PreferenceView>(*this, windows_);
    Instructions_view = view<Ui::InstructionsView>(*this, windows_);
    Change_password_view = view<Ui::ChangePasswordView>(*this, windows_);
    Info_View = view<Ui::InfoView>(*this, windows_);
    new_passcode_view = view<Ui::NewPasscodeView>(*this, windows_);
    change_passcode_view = view<Ui::ChangePasscodeView>(*this, windows_);
    makeForms();

    QFont title = Intro_title->font();
    title.setPointSizeF(title.pointSizeF() * 1.6);
    title.setBold(true);
    Intro_title->setFont(title);

    QuickView_popover = std::make_unique<Popover>(Quillery_window.get());
    QuickView_popover->setObjectName(QStringLiteral("QuickView_popover"));
    QuickView_popover->setWindowTitle(QObject::tr("Copied"));
    quickViewHeading = new QLabel(QuickView_popover.get());
    quickViewHeading->setObjectName(QStringLiteral("quickViewHeading"));
    QuickView_label = new TextView(QuickView_popover.get());
    QuickView_label->setObjectName(QStringLiteral("QuickView_label"));
    QuickView_label->setAccessibleName(QObject::tr("Copied text"));
    auto *quickLayout = new QVBoxLayout(QuickView_popover.get());
    quickLayout->setContentsMargins(12, 10, 12, 12);
    quickLayout->addWidget(quickViewHeading);
    quickLayout->addWidget(QuickView_label);
    // The list lies behind it in the same colours: only a border of its own tells the two apart.
    QuickView_popover->setFrameStyle(QFrame::Box | QFrame::Plain);
    QuickView_popover->setLineWidth(2);
    QuickView_popover->setForegroundRole(QPalette::Highlight);
    QuickView_popover->setBackgroundRole(QPalette::Base);
    QuickView_popover->setAutoFillBackground(true);
    QuickView_label->setFrameShape(QFrame::NoFrame);
    QuickView_popover->setFixedSize(kQuickViewWidth, kQuickViewHeight);

    Intro_popover = std::make_unique<Popover>(nullptr);
    Intro_popover->setObjectName(QStringLiteral("Intro_popover"));
    Intro_popover->setWindowTitle(QObject::tr("About us"));
    static_cast<Ui::IntroPopover *>(this)->setupUi(Intro_popover.get());
    Intro_popover->setObjectName(QStringLiteral("Intro_popover"));

    waitingWindow = std::make_unique<WaitingWindow>();

    notificationBanner = std::make_unique<NotificationBanner>();
    notificationBanner->setObjectName(QStringLiteral("notificationBanner"));
    notificationBanner->setWindowTitle(QObject::tr("Quillery says"));
    makeMenu();
    // It belongs to the list.
    QObject::connect(Quillery_Box, &Box::contentViewChanged, QuickView_popover.get(), &QWidget::hide);
    QObject::connect(Quillery_Box, &Box::contentViewChanged, Quillery_window.get(),
                     [this] { showRemovalOfContacts(false); });
    new LabelOf(*Share_switch, *Share_label);
    new LabelOf(*Read_local_button, *Make_available_offline_label);
    new LabelOf(*Auto_Login_Check_box, *Auto_login_label);

    for (QWidget *root :
         {Quillery_window.get(), Intro_window.get(), Windowed_mode.get(), &windows_,
          static_cast<QWidget *>(QuickView_popover.get()), static_cast<QWidget *>(Intro_popover.get()),
          static_cast<QWidget *>(waitingWindow.get())}) {
        makeEnterPress(*root);
        applyUiIds(*root);
    }
    applyUiIds(*notificationBanner);
    for (QMenu *menu : {&Quillery_Menu, &Log_in_menu}) applyUiIds(*menu);
}

Interface::~Interface() {
    // The views go with windows_, wherever they are shown now.
    Quillery_Box->setContentView(nullptr);
    Passcode_box->setContentView(nullptr);
    for (QWidget *shown : {Checking_for_connection_view, List_View, Insert_passcode_view, Sign_in_view,
                           Sign_up_view, Add_contact_view, Contacts_view, Contacts_View,
                           static_cast<QWidget *>(Contacts_table), Preference_View, Instructions_view,
                           Change_password_view, Info_View, new_passcode_view, change_passcode_view}) {
        shown->setParent(&windows_);
    }
    QuickView_popover.reset();
}

void Interface::makeMenu() {
    const auto item = [this](QMenu &menu, const char *name, const QString &text) {
        QAction *action = menu.addAction(text);
        action->setObjectName(QLatin1String(name));
        return action;
    };
    Quillery_Menu.setObjectName(QStringLiteral("Quillery_Menu"));
    Saveing_menu_item = item(Quillery_Menu, "Saveing_menu_item", QObject::tr("Save Clipboard"));
    Clipboard_saves_menu_item = item(Quillery_Menu, "_Clipboard_saves_menu_item", QObject::tr("Saved List"));
    Quillery_Menu.addSeparator();
    Add_contact_menu_item = item(Quillery_Menu, "Add_contact_menu_item", QObject::tr("Add a Friend"));
    Remove_a_friend_item = item(Quillery_Menu, "Remove_a_friend_item", QObject::tr("Remove a Friend"));
    Contacts_item = item(Quillery_Menu, "Contacts_item", QObject::tr("Friends"));
    Quillery_Menu.addSeparator();
    Log_in_menu_item = item(Quillery_Menu, "Log_in_menu_item", QObject::tr("Log in"));
    changePasswordItem = item(Quillery_Menu, "changePasswordItem", QObject::tr("Change Password"));
    Unlock_passcode_item = item(Quillery_Menu, "Unlock_passcode_item", QObject::tr("Unlock with Passcode"));
    Quillery_Menu.addSeparator();
    Preference_menu_item = item(Quillery_Menu, "Preference_menu_item", QObject::tr("Preferences"));
    Windowed_mode_item = item(Quillery_Menu, "Windowed_mode_item", QObject::tr("Windowed Mode"));
    Instructions = item(Quillery_Menu, "Instructions", QObject::tr("Instructions"));
    Info_Action = item(Quillery_Menu, "Info_Action", QObject::tr("Information"));
    Quillery_Menu.addSeparator();
    How_to_use = item(Quillery_Menu, "How_to_use", QObject::tr("Tutorials"));
    QMenu *links = Quillery_Menu.addMenu(QObject::tr("About Us"));
    aboutUs = links->menuAction();
    Web = item(*links, "Web", QObject::tr("Web Site"));
    Facebook = item(*links, "Facebook", QObject::tr("Facebook"));
    Twitter = item(*links, "Twitter", QObject::tr("Twitter"));
    Pinterest = item(*links, "Pinterest", QObject::tr("Pinterest"));
    GooglePluse = item(*links, "GooglePluse", QObject::tr("Google+"));
    EMail = item(*links, "EMail", QObject::tr("Write to Us"));
    Quillery_Menu.addSeparator();
    Quit = item(Quillery_Menu, "Quit", QObject::tr("Quit"));

    Log_in_menu.setObjectName(QStringLiteral("Log_in_menu"));
    Open_sign_in_window = item(Log_in_menu, "Open_sign_in_window", QObject::tr("Sign in"));
    Open_sign_up_view = item(Log_in_menu, "Open_sign_up_view", QObject::tr("Sign up"));
}

void Interface::makeForms() {
    const auto submit = [](std::initializer_list<QLineEdit *> fields, QPushButton *button,
                           std::initializer_list<QString> titles) {
        for (QLineEdit *field : fields)
            QObject::connect(field, &QLineEdit::returnPressed, button, &QPushButton::click);
        makeWideEnoughFor(*button, titles);
    };
    const auto showWith = [](QCheckBox *box, std::initializer_list<QLineEdit *> passwords) {
        for (QLineEdit *field : passwords) {
            QObject::connect(box, &QCheckBox::toggled, field, [field](bool shows) {
                field->setEchoMode(shows ? QLineEdit::Normal : QLineEdit::Password);
            });
        }
    };
    const QString refused = QObject::tr("Check your entries.");
    submit({Sign_up_Fullname, Sign_up_username, Sign_up_email, Sign_up_password, Sign_up_re_password},
           Sign_up_done, {refused, QObject::tr("Username exist."), QObject::tr("Wait...")});
    submit({Sign_in_username, Sign_in_password}, Sign_in_done, {QObject::tr("Wrong entries/Network error!")});
    submit({Change_old_password, Change_new_password, Change_retype_password}, Change_done_button, {refused});
    submit({Add_contact_textfield}, Add_contact_done_button, {});
    showWith(Sign_up_show_passwords, {Sign_up_password, Sign_up_re_password});
    showWith(Sign_in_show_password, {Sign_in_password});
    showWith(Change_show_passwords, {Change_old_password, Change_new_password, Change_retype_password});
    submit({Create_passcode, Retype_passcode}, Done_create_passcode, {});
    submit({Change_old_passcode, Change_new_passcode, Change_Retype_passcode}, Done_change_passcode, {});
    showWith(Create_passcode_show, {Create_passcode, Retype_passcode});
    showWith(Change_passcode_show, {Change_old_passcode, Change_new_passcode, Change_Retype_passcode});
    for (QLabel *title : {Sign_up_title, Sign_in_title, Change_password_title, Add_contact_title,
                          Friends_label, Info_title}) {
        QFont font = title->font();
        font.setPointSizeF(font.pointSizeF() * kTitleScale);
        font.setBold(true);
        title->setFont(font);
    }
}

QString shortPath(const std::filesystem::path &path) {
    QString text = QString::fromStdString(path.string());
    const QString home = QDir::homePath() + u'/';
    if (text.startsWith(home)) text.replace(0, home.size(), QStringLiteral("~/"));
    return text;
}

void Interface::fillInformation(const std::optional<std::string> &storageHost,
                                const std::filesystem::path &rescuedLists) {
    Sign_up_explanation->setText((storageHost
                                      ? QObject::tr("Your list then follows you from machine to machine.")
                                      : QObject::tr("Your list is then in your account, on this computer.")) +
                                 u' ' + Sign_up_explanation->text());
    Info_image->setPixmap(QIcon(QStringLiteral(":/images/quillery.png"))
                              .pixmap(Info_image->minimumSize(), qApp->devicePixelRatio()));
    Info_title->setText(QObject::tr("Quillery %1").arg(QCoreApplication::applicationVersion()));
    Info_text->setHtml(
        QObject::tr(
            "<p>A clipboard keeper: it keeps the copied texts that you save, and puts any of them back.</p>"
            "<h4>Where your texts are</h4>"
            "<p>Signed out: in <tt>~/Documents/.Quillery.txt</tt>, on this computer alone.<br>"
            "Signed in: %1.<br>"
            "Settings: in <tt>%2</tt>.<br>"
            "Copies of lists that could not be read or written, the last %5: in "
            "<tt>%6</tt>.</p>"
            "<p>All of these are plain text, passwords and passcode included. Whoever can read the "
            "files can read "
            "your texts.</p>"
            "<h4>Licence</h4>"
            "<p>%3</p>"
            "<h4>Made with</h4>"
            "<p>Qt %4 (LGPL 3), libcurl (curl licence), libxcb and libxkbcommon (MIT).</p>")
            .arg(storageHost ? QObject::tr("on the server <tt>%1</tt>, so that they follow you")
                                   .arg(QString::fromStdString(*storageHost).toHtmlEscaped())
                             : QObject::tr("with this computer's personal storage server, in <tt>%1</tt>")
                                   .arg(shortPath(dataFolder() / "quillery/htdocs").toHtmlEscaped()),
                 shortPath(configurationFolder() / "TovanixDev/Quillery.ini").toHtmlEscaped(),
                 QObject::tr("MIT: use it, change it and pass it on as you like, without any warranty."),
                 QLatin1String(qVersion()))
            .arg(QString::number(RescuedLists::kMostFiles), shortPath(rescuedLists).toHtmlEscaped()));
}

void Interface::fitQuickViewToText() {
    QuickView_popover->setFixedSize(kQuickViewWidth, kQuickViewHeight);
    QuickView_popover->layout()->setGeometry(QuickView_popover->contentsRect());  // even while it is hidden
    const QSize usual = QuickView_label->size();
    const int height = QuickView_label->heightForText(usual.width(), usual.height());
    QuickView_popover->setFixedHeight(kQuickViewHeight - usual.height() + height);
}

void Interface::showContactsToPick() {
    Quillery_Box->setContentView(Contacts_view);  // which hides what it showed before: perhaps the table
    Contacts_layout->addWidget(Contacts_table);
    Contacts_table->show();
    Contacts_table->setFocus(Qt::OtherFocusReason);
}

void Interface::showContacts() {
    Quillery_Box->setContentView(Contacts_View);
    Friends_layout->insertWidget(Friends_layout->indexOf(startFriends), Contacts_table);
    // It has come to the end of the chain; what is below it is to follow it.
    QWidget::setTabOrder(Contacts_table, Remove_contact);
    QWidget::setTabOrder(Contacts_table, Read_friends_button);
    QWidget::setTabOrder(Contacts_table, startFriends_button);
    Contacts_table->show();
    Contacts_table->setFocus(Qt::OtherFocusReason);
}

void Interface::showContactsTable() {
    Quillery_Box->setContentView(Contacts_table);
}

void Interface::showRemovalOfContacts(bool removes) {
    const QWidget *shown = Quillery_Box->contentView();
    const bool isPlain = shown == Contacts_table || shown == Contacts_view;
    const bool showsFriends = isPlain || shown == Contacts_View;
    Quillery_window->setWindowTitle(showsFriends && removes ? QObject::tr("Remove a Friend")
                                                            : QStringLiteral("Quillery"));
    if (isPlain) {
        Contacts_bar_layout->addWidget(Friends_hint);
        Contacts_bar_layout->addWidget(Remove_contact);
        if (Contacts_table->window() == Remove_contact->window())
            QWidget::setTabOrder(Contacts_table, Remove_contact);
    } else {
        Friends_layout->insertWidget(1, Friends_hint);
        Friends_layout->addWidget(Remove_contact);
    }
    Contacts_bar->setVisible(isPlain);
}

void emptyFields(std::initializer_list<QLineEdit *> fields) {
    for (QLineEdit *field : fields) field->clear();
}

void orderFront(QWidget &window, ScreenPlace place) {
    if (window.isMinimized()) window.showNormal();
    if (!window.property("placed").toBool()) {
        window.adjustSize();
        const QRect room =
            window.screen()->availableGeometry().adjusted(kMargin, kMargin + kTitleBar, -kMargin, -kMargin);
        window.resize(window.size().expandedTo(window.property("usualSize").toSize()).boundedTo(room.size()));
        QRect at(QPoint(0, 0), window.size());
        if (place == ScreenPlace::kMiddle) {
            at.moveCenter(room.center());
        } else {
            at.moveTopLeft(room.topLeft());
        }
        window.move(at.topLeft());
        window.setProperty("placed", true);
    }
    window.setAttribute(Qt::WA_ShowWithoutActivating, place == ScreenPlace::kCorner);
    window.show();
    growToContent(window);
    window.raise();
    if (place == ScreenPlace::kMiddle) window.activateWindow();
}

void setFloatingWindowLevel(QWidget &window) {
    if (window.windowFlags() & Qt::WindowStaysOnTopHint) return;
    const bool wasVisible = window.isVisible();
    window.setWindowFlag(Qt::WindowStaysOnTopHint);
    if (wasVisible) window.show();
}
