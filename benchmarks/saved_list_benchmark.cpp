#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QLineEdit>
#include <QListView>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "app/AppDelegate.h"
#include "app/ClipList.h"
#include "app/Shell.h"
#include "platform/ListControl.h"
#include "platform/Text.h"

// What the user does with a saved list of 10,000 to 1,000,000 entries of 200 bytes each, through the real
// controller with its real windows, clipboard and files. To be run on a virtual desktop with an empty home
// folder.
//
// Every repetition takes one measurement, and the library runs the repetitions of all benchmarks in random
// order (--benchmark_enable_random_interleaving), so that a slow moment of the machine strikes all alike.

namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kBytesOfEntry = 200;  // with its terminator
constexpr int kMostSecondsToPaint = 60;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

[[noreturn]] void giveUp(const char *why) {
    std::fprintf(stderr, "saved_list_benchmark: %s\n", why);
    std::exit(1);
}

// Everyday words; one entry in a hundred holds a rare one, one in ten a letter beyond ASCII, one in four a
// line break.
std::string entry(std::size_t number) {
    static constexpr const char *kWords[] = {"meeting", "ticket", "address", "invoice", "please", "Monday",
                                             "version", "branch", "review",  "cable",   "garden", "station"};
    constexpr std::size_t kLength = kBytesOfEntry - ClipList::kEntryTerminator.size();
    std::string text = std::to_string(number) + ":";
    if (number % 100 == 7) text += " Zanzibar";
    if (number % 10 == 3) text += " Grüße";
    std::size_t word = number * 2654435761U;
    while (text.size() < kLength) {
        word = word * 6364136223846793005U + 1442695040888963407U;
        text += number % 4 == 1 && text.size() > 100 && text.find('\n') == std::string::npos ? '\n' : ' ';
        text += kWords[(word >> 33) % std::size(kWords)];
    }
    text.resize(kLength);
    return text;
}

class NobodyToAsk : public Alerts {
  public:
    int run(const QString &, const QString &, const QStringList &buttons, int) override {
        ++count;
        return static_cast<int>(buttons.size()) - 1;
    }
    int count = 0;
};

class CountedNotifications : public UserNotifications {
  public:
    void deliver(const QString &, const QString &) override { ++count; }
    int count = 0;
};

class NoWorkspace : public Workspace {
  public:
    bool openURL(const QUrl &) override { return false; }
};

// Says when a widget has been painted.
class PaintWatch : public QObject {
  public:
    explicit PaintWatch(QWidget &watched) { watched.installEventFilter(this); }

    // Turns the event loop until the widget has been painted and that is on its way to the screen.
    void wait() {
        const auto start = Clock::now();
        while (!isPainted_) {
            QCoreApplication::processEvents(QEventLoop::AllEvents);
            if (secondsSince(start) > kMostSecondsToPaint) giveUp("the list is not painted");
        }
    }
    void reset() { isPainted_ = false; }

  protected:
    bool eventFilter(QObject *, QEvent *event) override {
        if (event->type() == QEvent::Paint) isPainted_ = true;
        return false;
    }

  private:
    bool isPainted_ = false;
};

// Quillery as it stands after its start, signed out, with a saved list of so many entries.
class Desk {
  public:
    // The one for lists of this length. Only one is there at a time.
    static Desk &with(std::size_t entries) {
        if (!only_ || only_->entries_ != entries) {
            clear();
            only_ = std::make_unique<Desk>(entries);
        }
        return *only_;
    }
    // To be called before the application object goes.
    static void clear() { only_.reset(); }

    explicit Desk(std::size_t entries) : entries_(entries) {
        makeList();
        defaults_.setObject(QStringLiteral("YES"), QStringLiteral("kIsNotFirstUse"));
        Configuration configuration;
        configuration.storageHost = "127.0.0.1";
        configuration.storagePort = 1;  // nobody there: the list is the one on this machine
        delegate_ = std::make_unique<AppDelegate>(
            Shell{ui_, gate_, background_, waiting_, alerts_, pasteboard_, defaults_, notifications_,
                  workspace_, loginItem_, configuration, home_, [](std::stop_token) {
                      return PersonalStorage::Result{std::nullopt, "not wanted"};
                  }});
        gate_.enter([this] { delegate_->applicationDidFinishLaunching(); });
        if (list().numberOfItems() < entries_) giveUp("the list was not read");
        painted_ = std::make_unique<PaintWatch>(*view().viewport());
        alerts_.count = 0;
    }

    ~Desk() { background_.waitForAll(); }

    fs::path path() const { return home_ / "Documents" / ".Quillery.txt"; }
    ListControl &list() { return *delegate_->interface.Clipboard_saved_string_combobox; }
    QListView &view() { return *list().findChild<QListView *>(); }
    QLineEdit &line() { return *list().findChild<QLineEdit *>(); }

    // From the command in the menu until the list is on the screen.
    double open() {
        painted_->reset();
        const auto start = Clock::now();
        gate_.enter([this] { delegate_->Clipboard_saves(nullptr); });
        painted_->wait();
        return secondsSince(start);
    }

    void close() {
        delegate_->interface.QuickView_popover->hide();
        delegate_->interface.Quillery_window->close();
        settle();
    }

    // From the click on the last entry until it is on the clipboard and the list shows it.
    double pickLast() {
        const int last = static_cast<int>(entries_) - 1;
        const std::string text(list().itemAtIndex(static_cast<std::size_t>(last)));
        list().selectItemAtIndex(0);
        settle();
        painted_->reset();
        const auto start = Clock::now();
        Q_EMIT list().picked(last, text);
        painted_->wait();
        const double seconds = secondsSince(start);
        if (pasteboard_.stringForType().text != text) giveUp("what was picked is not on the clipboard");
        delegate_->interface.QuickView_popover->hide();
        settle();
        return seconds;
    }

    struct SaveTimes {
        double announced;  // the text has been looked for in the whole list, is in it, and the user is told
        double onDisk;     // the file holds it
    };

    // Both from the command in the menu on.
    SaveTimes saveNewText() {
        static std::size_t number = 0;
        const std::string text = "new " + entry(++number);
        if (!pasteboard_.setString(text)) giveUp("no clipboard");
        settle();
        const int before = notifications_.count;
        const auto start = Clock::now();
        gate_.enter([this] { delegate_->Save_bar_item(static_cast<QObject *>(nullptr)); });
        const double announced = secondsSince(start);
        background_.waitForAll();
        const double onDisk = secondsSince(start);
        if (notifications_.count != before + 1 || alerts_.count > 0) giveUp("the text was not saved");
        if (list().itemAtIndex(0) != text) giveUp("the text is not in the list");
        return {announced, onDisk};
    }

    // From words put into the line until the matching rows are painted.
    double filter(const QString &words) {
        line().clear();
        settle();
        painted_->reset();
        const auto start = Clock::now();
        line().setText(words);
        painted_->wait();
        const double seconds = secondsSince(start);
        const std::size_t shown = list().shownItems().size();
        line().clear();
        settle();
        if (shown == 0 || shown >= entries_) giveUp("the filter does not filter");
        return seconds;
    }

  private:
    void makeList() {
        home_ = fs::path(std::getenv("HOME")) / std::to_string(entries_);
        if (fs::exists(path())) return;
        fs::create_directories(path().parent_path());
        std::ofstream file(path(), std::ios::binary);
        for (std::size_t i = 0; i < entries_; ++i) file << entry(i) << ClipList::kEntryTerminator;
        file.close();
        if (!file) giveUp("the list could not be written");
    }

    // Lets the windows and the X server come to rest.
    static void settle() {
        QElapsedTimer quiet;
        quiet.start();
        while (quiet.elapsed() < 60) QCoreApplication::processEvents(QEventLoop::AllEvents);
    }

    inline static std::unique_ptr<Desk> only_;

    std::size_t entries_;
    fs::path home_;
    UiThread ui_;
    ActionGate gate_;
    BackgroundTasks background_{ui_};
    Waiting waiting_{ui_};
    NobodyToAsk alerts_;
    DesktopPasteboard pasteboard_{ui_, waiting_};
    UserDefaults defaults_;
    CountedNotifications notifications_;
    NoWorkspace workspace_;
    const LoginItem loginItem_{"/usr/bin/quillery"};
    std::unique_ptr<AppDelegate> delegate_;
    std::unique_ptr<PaintWatch> painted_;
};

Desk &deskFor(const benchmark::State &state) {
    return Desk::with(static_cast<std::size_t>(state.range(0)));
}

// ---- What opening and saving are measured against

// The bytes of a file as plainly as they can be read.
std::string bytesOf(const fs::path &path) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat status = {};
    if (fd < 0 || fstat(fd, &status) != 0) giveUp("the list cannot be read");
    std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
    std::size_t used = 0;
    while (used < bytes.size()) {
        const ssize_t n = read(fd, bytes.data() + used, bytes.size() - used);
        if (n <= 0) giveUp("the list cannot be read");
        used += static_cast<std::size_t>(n);
    }
    close(fd);
    return bytes;
}

void ReadAndSplit(benchmark::State &state) {
    Desk &desk = deskFor(state);
    for ([[maybe_unused]] auto _ : state) {
        const auto start = Clock::now();
        {
            const std::string text = bytesOf(desk.path());
            const auto pieces = ClipList::componentsSeparatedByTerminator(text);
            benchmark::DoNotOptimize(pieces.data());
        }
        state.SetIterationTime(secondsSince(start));
    }
}

// A file as large as the list, written and flushed to the disk beside it, and nothing else.
void Write(benchmark::State &state) {
    Desk &desk = deskFor(state);
    const std::string text = bytesOf(desk.path());
    const std::string path = desk.path().string() + ".plain";
    for ([[maybe_unused]] auto _ : state) {
        const auto start = Clock::now();
        const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        std::size_t used = 0;
        while (used < text.size()) {
            const ssize_t n = write(fd, text.data() + used, text.size() - used);
            if (n <= 0) giveUp("the disk cannot be written");
            used += static_cast<std::size_t>(n);
        }
        if (fsync(fd) != 0) giveUp("the disk cannot be written");
        close(fd);
        state.SetIterationTime(secondsSince(start));
        fs::remove(path);
    }
}

// ---- Opening the list

// The window is closed before.
void Open(benchmark::State &state) {
    Desk &desk = deskFor(state);
    for ([[maybe_unused]] auto _ : state) {
        desk.close();
        state.SetIterationTime(desk.open());
    }
}

// The window is open and its list is read anew.
void OpenAgain(benchmark::State &state) {
    Desk &desk = deskFor(state);
    for ([[maybe_unused]] auto _ : state) {
        desk.open();
        state.SetIterationTime(desk.open());
    }
}

// ---- Working with the list

void Pick(benchmark::State &state) {
    Desk &desk = deskFor(state);
    for ([[maybe_unused]] auto _ : state) {
        desk.open();
        state.SetIterationTime(desk.pickLast());
    }
}

// Until the user is told; the file is still being written.
void SaveAndAnnounce(benchmark::State &state) {
    Desk &desk = deskFor(state);
    for ([[maybe_unused]] auto _ : state) state.SetIterationTime(desk.saveNewText().announced);
}

// Until the file is on the disk.
void SaveToDisk(benchmark::State &state) {
    Desk &desk = deskFor(state);
    for ([[maybe_unused]] auto _ : state) state.SetIterationTime(desk.saveNewText().onDisk);
}

void Filter(benchmark::State &state, const QString &words) {
    Desk &desk = deskFor(state);
    for ([[maybe_unused]] auto _ : state) {
        desk.open();
        state.SetIterationTime(desk.filter(words));
    }
}

void sizes(benchmark::internal::Benchmark *one) {
    one->Arg(10'000)->Arg(100'000)->Arg(1'000'000)->Iterations(1)->UseManualTime()->Unit(
        benchmark::kMillisecond);
}

BENCHMARK(ReadAndSplit)->Apply(sizes);
BENCHMARK(Write)->Apply(sizes);
BENCHMARK(Open)->Apply(sizes);
BENCHMARK(OpenAgain)->Apply(sizes);
BENCHMARK(Pick)->Apply(sizes);
BENCHMARK(SaveAndAnnounce)->Apply(sizes);
BENCHMARK(SaveToDisk)->Apply(sizes);
BENCHMARK_CAPTURE(Filter, ascii, QStringLiteral("zanzibar"))->Apply(sizes);
BENCHMARK_CAPTURE(Filter, unicode, QStringLiteral("grüße"))->Apply(sizes);

}  // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    QApplication application(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    Desk::clear();
    return 0;
}
