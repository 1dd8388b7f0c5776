#include "util/log/Log_item_source.h"

#include "tests/support/Event_thread.h"
#include "util/log/Log_item.h"
#include "util/log/Log_item_private.h"
#include "util/log/Log_item_sender.h"

#include <QCoreApplication>
#include <QEvent>
#include <QPointer>
#include <QThread>

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

// Qt's own hook for diagnostic tools (private/qhooks_p.h); entries 3 and 4 are called for each QObject that
// is made and destroyed.
extern Q_CORE_EXPORT quintptr qtHookData[];

using Target_type = Util::Log_item_source::Target_type;

static_assert(sizeof(Target_type) == 1, "the kind of a target takes 8 bits");
static_assert(static_cast<int>(Target_type::none) == 4);
static_assert(sizeof(Util::Log_item_source) == 2 * sizeof(void*),
              "a source is a shared pointer and nothing else");

// The fields of the shared part in their order, and how wide they are.
using Source_private = Util::Log_item_source_private;
static_assert(offsetof(Source_private, sender) == 0);
static_assert(offsetof(Source_private, sender) < offsetof(Source_private, code_source));
static_assert(offsetof(Source_private, code_source) < offsetof(Source_private, functionality));
static_assert(offsetof(Source_private, functionality) < offsetof(Source_private, target));
static_assert(offsetof(Source_private, target) < offsetof(Source_private, target_type));
static_assert(std::is_same_v<decltype(Source_private::sender), QPointer<Util::Log_item_sender>>);
static_assert(std::is_same_v<decltype(Source_private::code_source), std::string>);
static_assert(std::is_same_v<decltype(Source_private::functionality), std::string>);
static_assert(std::is_unsigned_v<decltype(Source_private::target)> && sizeof(Source_private::target) == 8);

namespace {

constexpr unsigned long long LARGEST_TARGET = 0xFFFFFFFFFFFFFFFFULL;

class Log_item_source : public testing::Test {
protected:
    Application application;
};

/// Counts the QObjects that are made while it lives.
class QObject_count {
public:
    QObject_count()
    {
        made = 0;
        qtHookData[ADD_QOBJECT] = reinterpret_cast<quintptr>(&count);
    }
    ~QObject_count() { qtHookData[ADD_QOBJECT] = 0; }
    QObject_count(const QObject_count&) = delete;
    QObject_count& operator=(const QObject_count&) = delete;
    int get() const { return made; }

private:
    static constexpr int ADD_QOBJECT = 3;
    static void count(QObject*) { ++made; }
    static inline std::atomic<int> made{0};
};

Util::Log_item item_of(const Util::Log_item_source& source)
{
    return {source, Util::Log_item_priority::Info, false, 0, "text", 1, nullptr};
}

} // namespace

TEST_F(Log_item_source, keeps_what_it_was_built_with)
{
    const Util::Log_item_source source("gps", "fix", 0x123456789ABCDEF0ULL, static_cast<Target_type>(7));
    EXPECT_EQ("gps", source.code_source());
    EXPECT_EQ("fix", source.functionality());
    EXPECT_EQ(0x123456789ABCDEF0ULL, source.target());
    EXPECT_EQ(7, static_cast<int>(source.target_type()));
    ASSERT_NE(nullptr, source.sender());
}

TEST_F(Log_item_source, keeps_the_bytes_of_its_texts)
{
    const Util::Log_item_source source("H\xC3\xB6he:\n", "\xE2\x82\xAC\xFF", 0, Target_type::none);
    EXPECT_EQ("H\xC3\xB6he:\n", source.code_source());
    EXPECT_EQ("\xE2\x82\xAC\xFF", source.functionality());
}

TEST_F(Log_item_source, copies_its_texts)
{
    char code[] = "gps";
    char functionality[] = "fix";
    const Util::Log_item_source source(code, functionality, 0, Target_type::none);
    code[0] = 'X';
    functionality[0] = 'X';
    EXPECT_EQ("gps", source.code_source());
    EXPECT_EQ("fix", source.functionality());
}

TEST_F(Log_item_source, is_valid_with_empty_texts)
{
    const Util::Log_item_source source("", "", 0, Target_type::none);
    EXPECT_EQ("", source.code_source());
    EXPECT_EQ("", source.functionality());
    EXPECT_NE(nullptr, source.sender());
}

TEST_F(Log_item_source, keeps_every_target_of_one_bit_and_the_largest)
{
    for (int bit = 0; bit < 64; ++bit)
        EXPECT_EQ(1ULL << bit, Util::Log_item_source("a", "b", 1ULL << bit, Target_type::none).target());
    EXPECT_EQ(LARGEST_TARGET, Util::Log_item_source("a", "b", LARGEST_TARGET, Target_type::none).target());
}

TEST_F(Log_item_source, keeps_every_kind_of_target)
{
    for (int kind = 0; kind <= 255; ++kind)
        EXPECT_EQ(kind,
                  static_cast<int>(
                      Util::Log_item_source("a", "b", 0, static_cast<Target_type>(kind)).target_type()));
}

TEST_F(Log_item_source, is_invalid_when_built_with_nothing)
{
    const Util::Log_item_source source;
    EXPECT_EQ("", source.code_source());
    EXPECT_EQ("", source.functionality());
    EXPECT_EQ(0U, source.target());
    EXPECT_EQ(4, static_cast<int>(source.target_type()));
}

TEST_F(Log_item_source, answers_one_static_empty_text_while_invalid)
{
    const Util::Log_item_source source;
    const Util::Log_item_source another;
    EXPECT_EQ(&source.code_source(), &source.functionality());
    EXPECT_EQ(&source.code_source(), &another.code_source());
    EXPECT_EQ(&source.code_source(), &Util::Log_item().message_utf8());
}

TEST_F(Log_item_source, makes_no_sender_while_invalid)
{
    const QObject_count count;
    const Util::Log_item_source source;
    const Util::Log_item_source copy(source);
    EXPECT_EQ(0, count.get());
}

TEST_F(Log_item_source, makes_one_sender_of_its_own_and_none_for_a_copy)
{
    const QObject_count count;
    const Util::Log_item_source source("gps", "fix", 1, Target_type::none);
    EXPECT_EQ(1, count.get());
    const Util::Log_item_source copy(source);
    EXPECT_EQ(1, count.get());
    const Util::Log_item_source another("gps", "fix", 1, Target_type::none);
    EXPECT_EQ(2, count.get());
    EXPECT_NE(source.sender(), another.sender());
}

TEST_F(Log_item_source, refuses_a_null_text_and_makes_no_sender)
{
    const char* const null = nullptr;
    const QObject_count count;
    EXPECT_THROW(Util::Log_item_source(null, "fix", 1, Target_type::none), std::logic_error);
    EXPECT_THROW(Util::Log_item_source("gps", null, 1, Target_type::none), std::logic_error);
    EXPECT_THROW(Util::Log_item_source(null, null, 1, Target_type::none), std::logic_error);
    EXPECT_EQ(0, count.get());
}

TEST_F(Log_item_source, shares_everything_with_its_copies)
{
    const Util::Log_item_source source("gps", "fix", 255, static_cast<Target_type>(2));
    Util::Log_item_source assigned;
    assigned = source;
    EXPECT_EQ(&source.code_source(), &assigned.code_source());
    EXPECT_EQ(&source.functionality(), &assigned.functionality());
    EXPECT_EQ(source.sender(), assigned.sender());
    EXPECT_EQ(255U, assigned.target());
    EXPECT_EQ(2, static_cast<int>(assigned.target_type()));
}

TEST_F(Log_item_source, keeps_its_texts_when_the_handle_they_were_read_from_is_gone)
{
    Util::Log_item_source copy;
    const std::string* text = nullptr;
    {
        const Util::Log_item_source source("gps", "fix", 255, Target_type::none);
        text = &source.code_source();
        copy = source;
    }
    EXPECT_EQ(text, &copy.code_source());
    EXPECT_EQ("gps", *text);
}

TEST_F(Log_item_source, has_a_sender_without_parent_in_the_thread_that_built_it)
{
    const Util::Log_item_source here("gps", "fix", 0, Target_type::none);
    EXPECT_EQ(nullptr, here.sender()->parent());
    EXPECT_EQ(QThread::currentThread(), here.sender()->thread());

    Event_thread thread;
    Util::Log_item_source there;
    thread.run([&there] { there = Util::Log_item_source("gps", "fix", 0, Target_type::none); });
    EXPECT_EQ(nullptr, there.sender()->parent());
    EXPECT_EQ(thread.get(), there.sender()->thread());
    there = Util::Log_item_source();
    thread.drain();
}

TEST_F(Log_item_source, leaves_the_deletion_of_its_sender_to_the_event_loop)
{
    Util::Log_item_source source("gps", "fix", 0, Target_type::none);
    const QPointer<Util::Log_item_sender> sender = source.sender();
    source = Util::Log_item_source();
    EXPECT_FALSE(sender.isNull());
    Application::run_event_loop();
    EXPECT_TRUE(sender.isNull());
}

TEST_F(Log_item_source, keeps_its_sender_until_the_last_copy_is_gone)
{
    Util::Log_item_source source("gps", "fix", 0, Target_type::none);
    Util::Log_item_source copy(source);
    const QPointer<Util::Log_item_sender> sender = source.sender();
    source = Util::Log_item_source();
    Application::run_event_loop();
    EXPECT_EQ(sender.data(), copy.sender());
    ASSERT_FALSE(sender.isNull());
    copy = Util::Log_item_source();
    Application::run_event_loop();
    EXPECT_TRUE(sender.isNull());
}

TEST_F(Log_item_source, keeps_its_sender_while_an_item_or_its_copy_names_it)
{
    Util::Log_item_source source("gps", "fix", 0, Target_type::none);
    const QPointer<Util::Log_item_sender> sender = source.sender();
    auto item = item_of(source);
    source = Util::Log_item_source();
    Util::Log_item copy(item);
    item = Util::Log_item();
    Application::run_event_loop();
    EXPECT_FALSE(sender.isNull());
    EXPECT_EQ(sender.data(), copy.source().sender());
    copy = Util::Log_item();
    Application::run_event_loop();
    EXPECT_TRUE(sender.isNull());
}

TEST_F(Log_item_source, keeps_its_sender_while_an_item_waits_to_be_delivered)
{
    Util::Log_item_source source("gps", "fix", 0, Target_type::none);
    const QPointer<Util::Log_item_sender> sender = source.sender();
    int delivered = 0;
    QObject::connect(source.sender(), &Util::Log_item_sender::logged, [&delivered] { ++delivered; });
    std::thread([source = std::move(source)] { source.submit(item_of(source)); }).join();
    EXPECT_EQ(0, delivered);
    EXPECT_FALSE(sender.isNull());
    EXPECT_TRUE(Application::run_event_loop_until([&delivered] { return delivered == 1; }));
    Application::run_event_loop();
    EXPECT_TRUE(sender.isNull());
}

TEST_F(Log_item_source, has_its_sender_deleted_by_the_senders_thread_when_another_drops_the_last_copy)
{
    Util::Log_item_source source("gps", "fix", 0, Target_type::none);
    const QPointer<Util::Log_item_sender> sender = source.sender();
    QThread* deleting_thread = nullptr;
    QObject::connect(source.sender(), &QObject::destroyed,
                     [&deleting_thread] { deleting_thread = QThread::currentThread(); });
    std::thread([source = std::move(source)] {}).join();
    EXPECT_FALSE(sender.isNull());
    Application::run_event_loop();
    EXPECT_TRUE(sender.isNull());
    EXPECT_EQ(QThread::currentThread(), deleting_thread);
}

TEST_F(Log_item_source, has_a_sender_of_another_thread_deleted_there)
{
    Event_thread thread;
    Util::Log_item_source source;
    std::atomic<QThread*> deleting_thread{nullptr};
    thread.run([&] {
        source = Util::Log_item_source("gps", "fix", 0, Target_type::none);
        QObject::connect(source.sender(), &QObject::destroyed,
                         [&deleting_thread] { deleting_thread = QThread::currentThread(); });
    });
    Application::run_event_loop();
    EXPECT_EQ(nullptr, deleting_thread.load());
    source = Util::Log_item_source();
    thread.drain();
    EXPECT_EQ(thread.get(), deleting_thread.load());
}

TEST_F(Log_item_source, never_frees_the_sender_of_a_thread_that_ended_and_runs_no_event_loop)
{
    Util::Log_item_source source;
    std::thread([&source] { source = Util::Log_item_source("gps", "fix", 0, Target_type::none); }).join();
    const QPointer<Util::Log_item_sender> sender = source.sender();
    source = Util::Log_item_source();
    Application::run_event_loop(); // this thread's loop does not serve the other's objects
    ASSERT_FALSE(sender.isNull());
    delete sender.data(); // its thread has ended, so no one else can be using it
}

TEST_F(Log_item_source, leaves_the_sender_of_a_running_thread_without_event_loop_alone)
{
    std::atomic<int> step{0};
    const auto wait_for = [&step](int wanted) {
        while (step < wanted)
            std::this_thread::yield();
    };
    QPointer<Util::Log_item_sender> sender;
    Util::Log_item_source source;
    std::thread thread([&] {
        source = Util::Log_item_source("gps", "fix", 0, Target_type::none);
        sender = source.sender();
        step = 1;
        wait_for(2);
        EXPECT_FALSE(sender.isNull());
        delete sender.data();
    });
    wait_for(1);
    source = Util::Log_item_source();
    Application::run_event_loop();
    EXPECT_FALSE(sender.isNull());
    step = 2;
    thread.join();
}

TEST_F(Log_item_source, has_its_sender_freed_on_request_in_a_thread_without_event_loop)
{
    std::thread([] {
        Util::Log_item_source source("gps", "fix", 0, Target_type::none);
        const QPointer<Util::Log_item_sender> sender = source.sender();
        source = Util::Log_item_source();
        EXPECT_FALSE(sender.isNull());
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        EXPECT_TRUE(sender.isNull());
    }).join();
}

TEST_F(Log_item_source, stays_readable_when_the_thread_that_built_it_has_ended)
{
    Util::Log_item item;
    std::thread([&item] {
        item = item_of(Util::Log_item_source("gps", "fix", 255, static_cast<Target_type>(9)));
    }).join();
    EXPECT_EQ("gps", item.source().code_source());
    EXPECT_EQ("fix", item.source().functionality());
    EXPECT_EQ(255U, item.source().target());
    EXPECT_EQ(9, static_cast<int>(item.source().target_type()));
    ASSERT_NE(nullptr, item.source().sender());
    delete item.source().sender(); // no event loop will
}

TEST_F(Log_item_source, answers_no_sender_once_the_sender_was_deleted)
{
    Util::Log_item_source source("gps", "fix", 0, Target_type::none);
    const Util::Log_item_source copy(source);
    delete source.sender();
    EXPECT_EQ(nullptr, source.sender());
    EXPECT_EQ(nullptr, copy.sender());
    EXPECT_EQ("gps", source.code_source());
}

TEST_F(Log_item_source, asks_nothing_of_a_sender_that_was_deleted)
{
    Util::Log_item_source source("gps", "fix", 0, Target_type::none);
    delete source.sender();
    testing::internal::CaptureStderr(); // Qt would warn of an event for no object
    source = Util::Log_item_source();
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
}

TEST_F(Log_item_source, crosses_threads_by_copy)
{
    constexpr int THREADS = 4;
    constexpr int COPIES = 2500;
    Util::Log_item_source source("gps", "fix", 255, Target_type::none);
    const QPointer<Util::Log_item_sender> sender = source.sender();
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < THREADS; ++i)
        threads.emplace_back([source, &wrong] {
            for (int n = 0; n < COPIES; ++n) {
                const Util::Log_item_source copy(source);
                const auto item = item_of(copy);
                if (item.source().functionality() != "fix" || item.source().sender() != copy.sender())
                    ++wrong;
            }
        });
    source = Util::Log_item_source();
    for (std::thread& thread : threads)
        thread.join();
    threads.clear();
    EXPECT_EQ(0, wrong);
    EXPECT_FALSE(sender.isNull());
    Application::run_event_loop();
    EXPECT_TRUE(sender.isNull());
}
