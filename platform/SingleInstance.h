#pragma once

#include <QObject>
#include <QSocketNotifier>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// The one running program of this user on this display, and how a second start reaches it: a socket in the
// runtime folder, beside a lock that says whether anybody is there. Main thread.
class SingleInstance : public QObject {
    Q_OBJECT

  public:
    // What the running program answers: an exit status, and words for the user unless it is 0.
    struct Answer {
        static constexpr int kFailed = 1;
        int status = 0;
        std::string words;
    };
    // Called once, now or later, on the main thread.
    using Reply = std::function<void(const Answer &)>;
    // What the other process asks for, a short word.
    using Handler = std::function<void(const std::string &request, const Reply &reply)>;

    SingleInstance() = default;
    ~SingleInstance() override;

    enum class Claim {
        kIsTheOne,
        kIsSecond,  // another one runs
        kUnknown,   // the runtime folder cannot be used, so nobody can tell
    };
    // Whether this process is the one. If it is, it stays so for as long as this lives.
    Claim claim();

    // Takes requests of this user's processes from now on: of 32 at once, while others wait, and not of those
    // that have not said within `silence` what they want. Who is answered and stays makes room where it is
    // wanted. Needs a claim and the event loop. False if the socket cannot be had.
    bool listen(Handler handler, std::chrono::milliseconds silence = kSilenceLimit);
    static constexpr std::chrono::seconds kSilenceLimit{10};

    // Sends a request to the running program and waits for its answer; where none comes within `limit`, that
    // is what the answer says. Nothing if none runs, or it ended before it answered. With `untilItEnds` it
    // also waits for its end.
    static std::optional<Answer> send(const std::string &request, std::chrono::seconds limit,
                                      bool untilItEnds = false);

  private:
    struct Caller;
    void accept();
    void acceptUnlessFull();
    void read(Caller &caller);
    void drop(const Caller &caller);
    std::vector<std::shared_ptr<Caller>>::const_iterator firstAnswered() const;

    Handler handler_;
    std::chrono::milliseconds silence_ = kSilenceLimit;
    int lock_ = -1;
    int socket_ = -1;
    std::unique_ptr<QSocketNotifier> newcomers_;
    std::vector<std::shared_ptr<Caller>> callers_;
};
