#include "util/log/Log_item_sender.h"

#include "tests/support/Event_thread.h"
#include "util/log/Log_item.h"

#include <QMetaMethod>
#include <QMetaType>
#include <QSignalSpy>
#include <QThread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

using Sender = Util::Log_item_sender;
using Target_type = Util::Log_item_source::Target_type;
using testing::ElementsAre;

static_assert(std::is_base_of_v<QObject, Sender>);
static_assert(sizeof(Sender) == sizeof(QObject), "a sender has no state of its own");

namespace {

class Log_item_sender : public testing::Test {
protected:
    Application application;
    Util::Log_item_source source{"gps", "fix", 255, Target_type::none};
};

Util::Log_item item_with(const std::string& message, const Util::Log_item_source& source = {}, int line = 1)
{
    return {source, Util::Log_item_priority::Warning, false, 0, message, line, nullptr};
}

Util::Log_item item_in(const QSignalSpy& spy, int call)
{
    return *static_cast<const Util::Log_item*>(spy.at(call).at(0).constData());
}

/// What listeners in any thread heard, in the order in which they heard it.
class Record {
public:
    void add(const std::string& text)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        texts.push_back(text);
    }
    std::vector<std::string> get() const
    {
        const std::lock_guard<std::mutex> lock(mutex);
        return texts;
    }
    std::size_t size() const { return get().size(); }

private:
    mutable std::mutex mutex;
    std::vector<std::string> texts;
};

/// Notes each item that the sender emits, in the thread that emits it.
void listen(const Sender& sender, Record& record, const std::string& name)
{
    QObject::connect(&sender, &Sender::logged,
                     [&record, name](const Util::Log_item& item) { record.add(name + item.message_utf8()); });
}

} // namespace

TEST_F(Log_item_sender, goes_by_its_full_name_among_Qts_objects)
{
    EXPECT_STREQ("Util::Log_item_sender", Sender::staticMetaObject.className());
    EXPECT_STREQ("QObject", Sender::staticMetaObject.superClass()->className());
}

TEST_F(Log_item_sender, has_one_signal_and_one_slot)
{
    const QMetaObject& meta = Sender::staticMetaObject;
    EXPECT_EQ(2, meta.methodCount() - meta.methodOffset());
    EXPECT_EQ(0, meta.propertyCount() - meta.propertyOffset());
    struct Case {
        const char* signature;
        QMetaMethod::MethodType type;
    };
    for (const Case& each :
         {Case{"logged(Log_item)", QMetaMethod::Signal}, Case{"proxy(Log_item)", QMetaMethod::Slot}}) {
        SCOPED_TRACE(each.signature);
        const QMetaMethod method = meta.method(meta.indexOfMethod(each.signature));
        ASSERT_TRUE(method.isValid());
        EXPECT_EQ(each.type, method.methodType());
        EXPECT_EQ(QMetaMethod::Public, method.access());
        EXPECT_EQ(QList<QByteArray>{"item"}, method.parameterNames());
        EXPECT_EQ(QList<QByteArray>{"Log_item"}, method.parameterTypes());
        EXPECT_STREQ("void", method.typeName());
    }
}

TEST_F(Log_item_sender, has_no_parent_and_lives_in_the_thread_that_builds_it)
{
    const Sender here;
    EXPECT_EQ(nullptr, here.parent());
    EXPECT_EQ(QThread::currentThread(), here.thread());
    Event_thread thread;
    thread.run([&thread] {
        const Sender there;
        EXPECT_EQ(thread.get(), there.thread());
    });
}

TEST_F(Log_item_sender, has_its_items_known_to_Qt_as_Log_item)
{
    const Sender sender;
    const int id = QMetaType::type("Log_item");
    ASSERT_LE(QMetaType::User, id);
    EXPECT_STREQ("Log_item", QMetaType::typeName(id));
    EXPECT_EQ(static_cast<int>(sizeof(Util::Log_item)), QMetaType::sizeOf(id));
    const Sender another;
    EXPECT_EQ(id, QMetaType::type("Log_item"));
}

TEST_F(Log_item_sender, lets_Qt_copy_and_destroy_items_by_that_name)
{
    const int id = QMetaType::type("Log_item");
    Util::Log_item_source dropped = source;
    auto item = item_with("lost", dropped);
    const QPointer<Sender> sender = source.sender();
    void* const copy = QMetaType::create(id, &item);
    EXPECT_EQ(&item.message_utf8(), &static_cast<Util::Log_item*>(copy)->message_utf8());
    item = Util::Log_item();
    source = dropped = Util::Log_item_source();
    EXPECT_EQ("Warning:gps:fix:00000000000000FF:1:lost", static_cast<Util::Log_item*>(copy)->to_string());
    QMetaType::destroy(id, copy);
    Application::run_event_loop();
    EXPECT_TRUE(sender.isNull()); // the copy was the last to hold the source
}

TEST_F(Log_item_sender, emits_before_submit_returns_in_its_own_thread)
{
    Sender sender;
    const QSignalSpy logged(&sender, &Sender::logged);
    sender.submit(item_with("one"));
    ASSERT_EQ(1, logged.count());
    sender.submit(item_with("two"));
    ASSERT_EQ(2, logged.count());
    EXPECT_EQ("one", item_in(logged, 0).message_utf8());
    EXPECT_EQ("two", item_in(logged, 1).message_utf8());
}

TEST_F(Log_item_sender, emits_nothing_more_later_for_what_it_emitted_at_once)
{
    Sender sender;
    const QSignalSpy logged(&sender, &Sender::logged);
    sender.submit(item_with("one"));
    Application::run_event_loop();
    EXPECT_EQ(1, logged.count());
}

TEST_F(Log_item_sender, emits_an_empty_item_too)
{
    Sender sender;
    const QSignalSpy logged(&sender, &Sender::logged);
    sender.submit(Util::Log_item());
    ASSERT_EQ(1, logged.count());
    EXPECT_EQ("Invalid::Dummy:0000000000000000:-1:", item_in(logged, 0).to_string());
}

TEST_F(Log_item_sender, emits_another_threads_item_only_when_its_own_event_loop_runs)
{
    Sender sender;
    const QSignalSpy logged(&sender, &Sender::logged);
    std::thread([&sender] { sender.submit(item_with("one")); }).join();
    EXPECT_EQ(0, logged.count());
    QCoreApplication::processEvents();
    ASSERT_EQ(1, logged.count());
    EXPECT_EQ("one", item_in(logged, 0).message_utf8());
}

TEST_F(Log_item_sender, hands_an_item_over_without_copying_what_it_holds)
{
    Sender sender;
    const QSignalSpy logged(&sender, &Sender::logged);
    const auto item = item_with("one");
    sender.submit(item);
    std::thread([&sender, &item] { sender.submit(item); }).join();
    QCoreApplication::processEvents();
    ASSERT_EQ(2, logged.count());
    EXPECT_EQ(&item.message_utf8(), &item_in(logged, 0).message_utf8());
    EXPECT_EQ(&item.message_utf8(), &item_in(logged, 1).message_utf8());
}

TEST_F(Log_item_sender, emits_in_its_own_thread_whoever_submits)
{
    Event_thread thread;
    Sender sender;
    sender.moveToThread(thread.get());
    std::mutex mutex;
    std::vector<QThread*> emitting;
    QObject::connect(&sender, &Sender::logged, [&] {
        const std::lock_guard<std::mutex> lock(mutex);
        emitting.push_back(QThread::currentThread());
    });
    Application::post([&sender] { sender.submit(item_with("from here")); });
    std::thread([&sender] {
        Application::post([&sender] { sender.submit(item_with("from a third thread")); });
    }).join();
    thread.run([&sender] { sender.submit(item_with("from its own")); });
    thread.drain();
    EXPECT_THAT(emitting, ElementsAre(thread.get(), thread.get(), thread.get()));
}

TEST_F(Log_item_sender, reaches_a_listener_in_its_own_thread)
{
    Event_thread thread;
    QObject listener;
    Sender sender;
    sender.moveToThread(thread.get());
    std::vector<std::pair<QThread*, std::string>> heard;
    QObject::connect(&sender, &Sender::logged, &listener, [&heard](const Util::Log_item& item) {
        heard.emplace_back(QThread::currentThread(), item.to_string());
    });
    thread.run([&] { sender.submit(item_with("lost", source)); });
    EXPECT_TRUE(heard.empty());
    EXPECT_TRUE(Application::run_event_loop_until([&heard] { return !heard.empty(); }));
    EXPECT_THAT(heard, ElementsAre(std::make_pair(QThread::currentThread(),
                                                  std::string("Warning:gps:fix:00000000000000FF:1:lost"))));
}

TEST_F(Log_item_sender, is_connected_by_the_text_of_its_signatures)
{
    Sender from;
    Sender to;
    ASSERT_TRUE(QObject::connect(&from, SIGNAL(logged(Log_item)), &to, SLOT(proxy(Log_item))));
    const QSignalSpy logged(&to, SIGNAL(logged(Log_item)));
    const auto item = item_with("one");
    from.submit(item);
    ASSERT_EQ(1, logged.count());
    EXPECT_EQ(&item.message_utf8(), &item_in(logged, 0).message_utf8());
}

TEST_F(Log_item_sender, is_connected_across_threads_by_the_text_of_its_signatures)
{
    Event_thread thread;
    Sender from;
    Sender to;
    to.moveToThread(thread.get());
    ASSERT_TRUE(QObject::connect(&from, SIGNAL(logged(Log_item)), &to, SLOT(proxy(Log_item))));
    Record record;
    listen(to, record, "to ");
    Application::post([&from] { from.submit(item_with("one")); });
    thread.drain();
    EXPECT_THAT(record.get(), ElementsAre("to one"));
}

TEST_F(Log_item_sender, is_invoked_by_name_as_a_slot)
{
    Sender sender;
    const QSignalSpy logged(&sender, &Sender::logged);
    EXPECT_TRUE(QMetaObject::invokeMethod(&sender, "proxy", Qt::DirectConnection,
                                          QArgument<Util::Log_item>("Log_item", item_with("one"))));
    ASSERT_EQ(1, logged.count());
    EXPECT_EQ("one", item_in(logged, 0).message_utf8());
}

TEST_F(Log_item_sender, submits_what_its_proxy_is_given)
{
    Sender sender;
    const QSignalSpy logged(&sender, &Sender::logged);
    sender.proxy(item_with("one"));
    EXPECT_EQ(1, logged.count());
    std::thread([&sender] { sender.proxy(item_with("two")); }).join();
    EXPECT_EQ(1, logged.count());
    QCoreApplication::processEvents();
    ASSERT_EQ(2, logged.count());
    EXPECT_EQ("two", item_in(logged, 1).message_utf8());
}

TEST_F(Log_item_sender, forwards_each_item_once_down_a_chain_in_the_order_of_cause)
{
    Record record;
    Sender a;
    Sender b;
    Sender c;
    listen(a, record, "a ");
    listen(b, record, "b ");
    listen(c, record, "c ");
    a.forward_to(b);
    b.forward_to(c);
    a.submit(item_with("one"));
    EXPECT_THAT(record.get(), ElementsAre("a one", "b one", "c one"));
    Application::run_event_loop();
    EXPECT_EQ(3U, record.size());
}

TEST_F(Log_item_sender, is_forwarded_to_by_a_typed_connection_to_its_proxy)
{
    Sender from;
    Sender to;
    EXPECT_FALSE(QObject::disconnect(&from, &Sender::logged, &to, &Sender::proxy));
    from.forward_to(to);
    EXPECT_TRUE(QObject::disconnect(&from, &Sender::logged, &to, &Sender::proxy));
}

TEST_F(Log_item_sender, forwards_only_in_the_direction_of_the_chain)
{
    Record record;
    Sender a;
    Sender b;
    Sender c;
    listen(a, record, "a ");
    listen(b, record, "b ");
    listen(c, record, "c ");
    a.forward_to(b);
    b.forward_to(c);
    b.submit(item_with("one"));
    c.submit(item_with("two"));
    EXPECT_THAT(record.get(), ElementsAre("b one", "c one", "c two"));
}

TEST_F(Log_item_sender, forwards_down_a_chain_across_three_threads)
{
    Event_thread second;
    Event_thread third;
    Record record;
    Sender a;
    Sender b;
    Sender c;
    b.moveToThread(second.get());
    c.moveToThread(third.get());
    std::array<std::atomic<QThread*>, 3> emitting{};
    const std::array<Sender*, 3> chain{&a, &b, &c};
    for (std::size_t i = 0; i < chain.size(); ++i) {
        listen(*chain[i], record, std::string(1, static_cast<char>('a' + i)) + " ");
        QObject::connect(chain[i], &Sender::logged,
                         [&emitting, i] { emitting[i] = QThread::currentThread(); });
    }
    a.forward_to(b);
    b.forward_to(c);
    Application::post([&a] { a.submit(item_with("one")); });
    second.drain();
    third.drain();
    EXPECT_THAT(record.get(), ElementsAre("a one", "b one", "c one"));
    EXPECT_EQ(QThread::currentThread(), emitting[0]);
    EXPECT_EQ(second.get(), emitting[1]);
    EXPECT_EQ(third.get(), emitting[2]);
}

TEST_F(Log_item_sender, waits_for_the_targets_event_loop_when_it_forwards_to_another_thread)
{
    Event_thread thread;
    Sender from;
    Sender to; // lives here
    from.moveToThread(thread.get());
    from.forward_to(to);
    const QSignalSpy logged(&to, &Sender::logged);
    thread.run([&from] { from.submit(item_with("one")); });
    EXPECT_EQ(0, logged.count());
    QCoreApplication::processEvents();
    EXPECT_EQ(1, logged.count());
}

TEST_F(Log_item_sender, follows_a_target_that_moves_to_another_thread_after_the_forward)
{
    Event_thread thread;
    Record record;
    Sender from;
    Sender to;
    from.forward_to(to);
    listen(to, record, "to ");
    to.moveToThread(thread.get());
    std::atomic<QThread*> emitting{nullptr};
    QObject::connect(&to, &Sender::logged, [&emitting] { emitting = QThread::currentThread(); });
    Application::post([&from] { from.submit(item_with("one")); });
    thread.drain();
    EXPECT_THAT(record.get(), ElementsAre("to one"));
    EXPECT_EQ(thread.get(), emitting);
}

TEST_F(Log_item_sender, delivers_twice_what_was_forwarded_twice)
{
    Sender from;
    Sender to;
    from.forward_to(to);
    from.forward_to(to);
    const QSignalSpy at_from(&from, &Sender::logged);
    const QSignalSpy at_to(&to, &Sender::logged);
    from.submit(item_with("one"));
    EXPECT_EQ(1, at_from.count());
    ASSERT_EQ(2, at_to.count());
    EXPECT_EQ("one", item_in(at_to, 0).message_utf8());
    EXPECT_EQ("one", item_in(at_to, 1).message_utf8());
}

TEST_F(Log_item_sender, gathers_the_items_of_many_sources_in_a_central_sender)
{
    Util::Log_item_source other("radio", "link", 1, Target_type::none);
    Sender central;
    source.sender()->forward_to(central);
    other.sender()->forward_to(central);
    const QSignalSpy logged(&central, &Sender::logged);
    source.submit(item_with("lost", source));
    other.submit(item_with("lost", other));
    ASSERT_EQ(2, logged.count());
    EXPECT_EQ("Warning:gps:fix:00000000000000FF:1:lost", item_in(logged, 0).to_string());
    EXPECT_EQ("Warning:radio:link:0000000000000001:1:lost", item_in(logged, 1).to_string());
}

TEST_F(Log_item_sender, forwards_no_more_once_the_target_is_destroyed)
{
    Sender from;
    auto to = std::make_unique<Sender>();
    from.forward_to(*to);
    const QSignalSpy logged(&from, &Sender::logged);
    to.reset();
    from.submit(item_with("one"));
    EXPECT_EQ(1, logged.count());
}

TEST_F(Log_item_sender, leaves_the_target_working_when_it_is_destroyed_itself)
{
    auto from = std::make_unique<Sender>();
    Sender to;
    from->forward_to(to);
    const QSignalSpy logged(&to, &Sender::logged);
    from->submit(item_with("one"));
    from.reset();
    EXPECT_EQ(1, logged.count());
    to.submit(item_with("two"));
    EXPECT_EQ(2, logged.count());
}

TEST_F(Log_item_sender, drops_the_items_that_wait_for_a_sender_that_is_destroyed)
{
    auto sender = std::make_unique<Sender>();
    auto item = item_with("one", source);
    const QPointer<Sender> of_source = source.sender();
    std::thread([&sender, &item] { sender->submit(std::move(item)); }).join();
    sender.reset();
    item = Util::Log_item();
    source = Util::Log_item_source();
    Application::run_event_loop();
    EXPECT_TRUE(of_source.isNull()); // the waiting item held the source as well
}

TEST_F(Log_item_sender, delivers_every_item_of_many_threads_once_and_each_threads_in_order)
{
    constexpr int THREADS = 4;
    constexpr int ITEMS = 2500;
    Sender central;
    source.sender()->forward_to(central);
    std::array<std::vector<int>, THREADS> heard;
    QObject::connect(&central, &Sender::logged, [&heard](const Util::Log_item& item) {
        heard.at(static_cast<std::size_t>(std::stoi(item.message_utf8()))).push_back(item.line_number());
    });
    std::vector<std::thread> threads;
    for (int id = 0; id < THREADS; ++id)
        threads.emplace_back([id, this] {
            for (int n = 0; n < ITEMS; ++n)
                Application::post([&] { source.submit(item_with(std::to_string(id), source, n)); });
        });
    const auto count = [&heard] {
        std::size_t sum = 0;
        for (const std::vector<int>& lines : heard)
            sum += lines.size();
        return sum;
    };
    EXPECT_TRUE(Application::run_event_loop_until([&count] { return count() >= THREADS * ITEMS; }));
    for (std::thread& thread : threads)
        thread.join();
    Application::run_event_loop();
    std::vector<int> in_order;
    for (int n = 0; n < ITEMS; ++n)
        in_order.push_back(n);
    for (const std::vector<int>& lines : heard)
        EXPECT_EQ(in_order, lines);
}

TEST_F(Log_item_sender, keeps_each_threads_order_through_a_chain_of_threads)
{
    constexpr int ITEMS = 500;
    Event_thread middle;
    Sender first;
    Sender second;
    Sender last;
    second.moveToThread(middle.get());
    first.forward_to(second);
    second.forward_to(last);
    std::vector<int> heard;
    QObject::connect(&last, &Sender::logged,
                     [&heard](const Util::Log_item& item) { heard.push_back(item.line_number()); });
    std::vector<int> in_order;
    for (int n = 0; n < ITEMS; ++n) {
        Application::post([&first, n] { first.submit(item_with("m", {}, n)); });
        in_order.push_back(n);
    }
    EXPECT_TRUE(heard.empty());
    EXPECT_TRUE(Application::run_event_loop_until([&heard] { return heard.size() >= ITEMS; }));
    middle.drain(); // it may still be on its way out of the second
    EXPECT_EQ(in_order, heard);
}

TEST_F(Log_item_sender, is_what_a_source_submits_through)
{
    const QSignalSpy logged(source.sender(), &Sender::logged);
    source.submit(item_with("one", source));
    ASSERT_EQ(1, logged.count());
    EXPECT_EQ("Warning:gps:fix:00000000000000FF:1:one", item_in(logged, 0).to_string());
    std::thread([this] { source.submit(item_with("two", source)); }).join();
    EXPECT_EQ(1, logged.count());
    QCoreApplication::processEvents();
    ASSERT_EQ(2, logged.count());
    EXPECT_EQ("two", item_in(logged, 1).message_utf8());
}

TEST_F(Log_item_sender, is_chosen_by_the_source_that_submits_not_by_the_items_own)
{
    const Util::Log_item_source other("radio", "link", 1, Target_type::none);
    const QSignalSpy at_source(source.sender(), &Sender::logged);
    const QSignalSpy at_other(other.sender(), &Sender::logged);
    other.submit(item_with("one", source));
    EXPECT_EQ(0, at_source.count());
    ASSERT_EQ(1, at_other.count());
    EXPECT_EQ("gps", item_in(at_other, 0).code_source());
}

TEST_F(Log_item_sender, leaves_the_submitters_item_as_it_was)
{
    auto item = item_with("lost", source);
    const std::string* const message = &item.message_utf8();
    source.submit(std::move(item));
    EXPECT_EQ(message, &item.message_utf8()); // NOLINT(bugprone-use-after-move): a copy goes out
    Util::Log_item_source().submit(std::move(item));
    EXPECT_EQ("Warning:gps:fix:00000000000000FF:1:lost", item.to_string());
}

TEST_F(Log_item_sender, writes_nothing_to_the_debug_output_for_a_valid_source)
{
    testing::internal::CaptureStderr();
    source.submit(item_with("one", source));
    std::thread([this] { source.submit(item_with("two", source)); }).join();
    Application::run_event_loop();
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
}

TEST_F(Log_item_sender, hears_nothing_of_an_invalid_sources_item_which_is_printed_instead)
{
    const QSignalSpy at_source(source.sender(), &Sender::logged);
    const QSignalSpy at_dummy(Util::Log_item().source().sender(), &Sender::logged);
    const Util::Log_item_source invalid;
    testing::internal::CaptureStderr();
    EXPECT_NO_THROW(invalid.submit(item_with("lost", source, 42)));
    EXPECT_EQ("Could not submitt Warning:gps:fix:00000000000000FF:42:lost on invalid source\n",
              testing::internal::GetCapturedStderr());
    Application::run_event_loop();
    EXPECT_EQ(0, at_source.count());
    EXPECT_EQ(0, at_dummy.count());
}

TEST_F(Log_item_sender, is_not_missed_for_odd_items_of_an_invalid_source)
{
    const Util::Log_item_source invalid;
    testing::internal::CaptureStderr();
    invalid.submit(Util::Log_item());
    invalid.submit(item_with("100%s%n", invalid, -3));
    invalid.submit(item_with(std::string("a\0b", 3), invalid)); // %s ends at the NUL
    EXPECT_EQ("Could not submitt Invalid::Dummy:0000000000000000:-1: on invalid source\n"
              "Could not submitt Warning:::0000000000000000:-3:100%s%n on invalid source\n"
              "Could not submitt Warning:::0000000000000000:1:a on invalid source\n",
              testing::internal::GetCapturedStderr());
}
