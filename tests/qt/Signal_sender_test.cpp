#include "util/qt/Signal_sender.h"

#include "tests/support/Event_thread.h"
#include "tests/support/Guarded_page.h"

#include <QMetaMethod>
#include <QMetaType>
#include <QMutex>
#include <QPointer>
#include <QSignalSpy>
#include <QString>
#include <QThread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <dlfcn.h>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <shared_mutex>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

using Sender = Util::Signal_sender;
using testing::ElementsAre;
using testing::IsEmpty;

#ifdef __SANITIZE_THREAD__
#include <sanitizer/tsan_interface.h>

// Qt is not built for the thread sanitizer, which would take what its mutexes order for races.
void QMutex::lock() QT_MUTEX_LOCK_NOEXCEPT
{
    static auto* const lock_in_Qt =
        reinterpret_cast<void (*)(QMutex*)>(dlsym(RTLD_NEXT, "_ZN6QMutex4lockEv"));
    lock_in_Qt(this);
    __tsan_acquire(this);
}

void QMutex::unlock() noexcept
{
    static auto* const unlock_in_Qt =
        reinterpret_cast<void (*)(QMutex*)>(dlsym(RTLD_NEXT, "_ZN6QMutex6unlockEv"));
    __tsan_release(this);
    unlock_in_Qt(this);
}
#endif

static_assert(sizeof(Sender) == sizeof(void*));
static_assert(!std::is_copy_constructible_v<Sender> && !std::is_copy_assignable_v<Sender>);
static_assert(!std::is_polymorphic_v<Sender>);

/// Copying one runs whatever the test asks for: it happens inside emit_signal().
struct Watched {
    Watched() = default;
    Watched(const Watched&)
    {
        if (on_copy)
            on_copy();
    }
    Watched& operator=(const Watched&) = delete;
    ~Watched() = default;
    static inline std::function<void()> on_copy;
};
Q_DECLARE_METATYPE(Watched)

struct Unregistered {
    int value = 0;
};

/// What the slots of any receivers in any threads were called with.
class Calls {
public:
    void add(const QString& call)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        calls.push_back(call.toStdString());
    }
    std::vector<std::string> take()
    {
        const std::lock_guard<std::mutex> lock(mutex);
        return std::exchange(calls, {});
    }
    std::size_t size() const
    {
        const std::lock_guard<std::mutex> lock(mutex);
        return calls.size();
    }

private:
    mutable std::mutex mutex;
    std::vector<std::string> calls;
};

class Base : public QObject {
    Q_OBJECT
public:
    explicit Base(Calls& record, int number = 0) : calls(record), id(number) {}

public slots:
    void shadowed() { add("Base::shadowed()"); }

protected:
    void add(const QString& call) { calls.add(QString("%1 %2").arg(id).arg(call)); }

private:
    Calls& calls;
    const int id;
};

class Receiver : public Base {
    Q_OBJECT
public:
    using Base::Base;

    Q_INVOKABLE void invokable(int a) { add(QString("invokable(%1)").arg(a)); }

signals:
    void relayed(int a);

public slots:
    void nothing() { add("nothing()"); }
    void number(int a) { add(QString("number(%1)").arg(a)); }
    void numbers(int a, int b) { add(QString("numbers(%1,%2)").arg(a).arg(b)); }
    void text(const QString& a) { add(QString("text(%1)").arg(a)); }
    void both(int a, QString b) { add(QString("both(%1,%2)").arg(a).arg(b)); }
    void unsigned_number(unsigned int a) { add(QString("unsigned_number(%1)").arg(a)); }
    void templates(const QMap<QString, QList<int>>& a) { add(QString("templates(%1)").arg(a.size())); }
    void defaulted(int a = 7) { add(QString("defaulted(%1)").arg(a)); }
    int answer(int a)
    {
        add(QString("answer(%1)").arg(a));
        return a;
    }
    void ten(int a, int b, int c, int d, int e, int f, int g, int h, int i, int j)
    {
        QStringList all;
        for (const int each : {a, b, c, d, e, f, g, h, i, j})
            all << QString::number(each);
        add(QString("ten(%1)").arg(all.join(',')));
    }
    void watched(const Watched&) { add("watched()"); }
    void shadowed() { add("Receiver::shadowed()"); } // NOLINT: hides the base's, which is the point

private slots:
    void hidden() { add("hidden()"); }
};

/// Runs what the test asks for, as a slot.
class Actor : public QObject {
    Q_OBJECT
public:
    explicit Actor(std::function<void()> what) : action(std::move(what)) {}

public slots:
    void act() { action(); }

private:
    std::function<void()> action;
};

namespace {

class Signal_sender : public testing::Test {
protected:
    Signal_sender() { qRegisterMetaType<Watched>(); }

    bool emit_number(int value, const char* prefix = "p") const
    {
        return sender.emit_signal(prefix, "changed", Q_ARG(int, value));
    }
    std::vector<std::string> delivered()
    {
        Application::run_event_loop();
        return calls.take();
    }

    Application application;
    Calls calls;
    Sender sender;
};

/// Collects what Qt prints while it lives.
class Qt_output {
public:
    Qt_output() : previous(qInstallMessageHandler(handle)) { messages.clear(); }
    ~Qt_output() { qInstallMessageHandler(previous); }
    Qt_output(const Qt_output&) = delete;
    Qt_output& operator=(const Qt_output&) = delete;

    static std::vector<std::string> take() { return std::exchange(messages, {}); }

private:
    static void handle(QtMsgType type, const QMessageLogContext& context, const QString& text)
    {
        const char* const kind = type == QtDebugMsg ? "debug" : type == QtWarningMsg ? "warning" : "other";
        messages.push_back(std::string(kind) + " " + context.category + ": " + text.toStdString());
    }
    static inline std::vector<std::string> messages;
    const QtMessageHandler previous;
};

std::string printed(const Sender& sender)
{
    return sender.print().toStdString();
}

} // namespace

// ---- without a connection

TEST_F(Signal_sender, starts_without_private_data)
{
    EXPECT_TRUE(sender.empty());
    EXPECT_EQ("Signal sender NULL\n", printed(sender));
    EXPECT_EQ(0, sender.connected("p", "2changed(int)"));
    EXPECT_EQ(0, sender.connected(nullptr, "2changed(int)"));
    EXPECT_FALSE(emit_number(1));
    EXPECT_FALSE(sender.disconnect(nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ("Signal sender NULL\n", printed(sender));
    const Receiver receiver(calls);
    const Qt_output output;
    EXPECT_FALSE(sender.disconnect(nullptr, nullptr, &receiver, "number(int)")); // the slot is not looked at
    EXPECT_THAT(Qt_output::take(), IsEmpty());
}

TEST_F(Signal_sender, has_empty_private_data_between_init_and_deinit)
{
    sender._init();
    EXPECT_TRUE(sender.empty());
    EXPECT_EQ("Signal sender:\n", printed(sender));
    EXPECT_FALSE(emit_number(1));
    EXPECT_EQ(0, sender.connected("p", "2changed(int)"));
    sender._deinit();
    EXPECT_TRUE(sender.empty());
    EXPECT_EQ("Signal sender NULL\n", printed(sender));
}

TEST_F(Signal_sender, drops_every_connection_in_init_and_in_deinit)
{
    Receiver receiver(calls);
    ASSERT_TRUE(sender.connect("p", "2changed(int)", &receiver, "1number(int)"));
    sender._deinit();
    EXPECT_EQ("Signal sender NULL\n", printed(sender));
    ASSERT_TRUE(sender.connect("p", "2changed(int)", &receiver, "1number(int)"));
    sender._init();
    EXPECT_EQ("Signal sender:\n", printed(sender));
    EXPECT_FALSE(emit_number(1));
    EXPECT_THAT(delivered(), IsEmpty());
}

// ---- delivery

TEST_F(Signal_sender, delivers_from_the_event_loop_and_not_before)
{
    Receiver receiver(calls);
    EXPECT_TRUE(sender.connect("p", "2changed(int)", &receiver, "1number(int)"));
    EXPECT_FALSE(sender.empty());
    EXPECT_TRUE(emit_number(5));
    EXPECT_EQ(0U, calls.size());
    EXPECT_THAT(delivered(), ElementsAre("0 number(5)"));
    EXPECT_THAT(delivered(), IsEmpty());
}

TEST_F(Signal_sender, takes_what_Qts_macros_write)
{
    Receiver receiver(calls);
    EXPECT_TRUE(
        sender.connect("p", SIGNAL(changed(int, const QString&)), &receiver, SLOT(both(int, QString))));
    EXPECT_TRUE(sender.emit_signal("p", "changed", Q_ARG(int, 5), Q_ARG(QString, "five")));
    EXPECT_THAT(delivered(), ElementsAre("0 both(5,five)"));
}

TEST_F(Signal_sender, delivers_in_the_order_of_connection)
{
    Receiver a(calls, 1);
    Receiver b(calls, 2);
    sender.connect("p", "2changed(int)", &b, "1number(int)");
    sender.connect("p", "2changed(int)", &a, "1number(int)");
    sender.connect("p", "2changed(int)", &b, "1nothing()");
    sender.connect("p", "2changed(int)", &a, "1answer(int)");
    emit_number(1);
    emit_number(2);
    EXPECT_THAT(delivered(), ElementsAre("2 number(1)", "1 number(1)", "2 nothing()", "1 answer(1)",
                                         "2 number(2)", "1 number(2)", "2 nothing()", "1 answer(2)"));
}

TEST_F(Signal_sender, queues_two_calls_for_one_emission_when_connected_twice)
{
    Receiver receiver(calls);
    EXPECT_TRUE(sender.connect("p", "2changed(int)", &receiver, "1number(int)"));
    EXPECT_TRUE(sender.connect("p", "2changed(int)", &receiver, "1number(int)"));
    EXPECT_TRUE(emit_number(1));
    EXPECT_THAT(delivered(), ElementsAre("0 number(1)", "0 number(1)"));
    EXPECT_EQ("Signal sender:\n    P:p\n        Sig:changed(int)\n"
              "            Slot:number(int)\n            Slot:number(int)\n",
              printed(sender));
}

TEST_F(Signal_sender, delivers_copies_of_the_arguments)
{
    Receiver receiver(calls);
    sender.connect("p", "2changed(int,QString)", &receiver, "1both(int,QString)");
    {
        int number = 1;
        QString text = "one";
        sender.emit_signal("p", "changed", Q_ARG(int, number), Q_ARG(QString, text));
        number = 2;
        text[0] = 'x';
    }
    EXPECT_THAT(delivered(), ElementsAre("0 both(1,one)"));
}

TEST_F(Signal_sender, delivers_ten_arguments_and_any_number_below)
{
    Receiver receiver(calls);
    std::array<QGenericArgument, 10> arguments;
    std::string types;
    const std::array<int, 10> values{10, 11, 12, 13, 14, 15, 16, 17, 18, 19};
    for (std::size_t count = 0; count <= arguments.size(); ++count) {
        SCOPED_TRACE(count);
        if (count > 0) {
            arguments[count - 1] = QGenericArgument("int", &values[count - 1]);
            types += count > 1 ? ",int" : "int";
        }
        ASSERT_TRUE(sender.connect("p", ("2changed(" + types + ")").c_str(), &receiver,
                                   count == 10 ? "1ten(int,int,int,int,int,int,int,int,int,int)"
                                   : count > 1 ? "1numbers(int,int)"
                                               : "1nothing()"));
        EXPECT_TRUE(sender.emit_signal("p", "changed", arguments[0], arguments[1], arguments[2], arguments[3],
                                       arguments[4], arguments[5], arguments[6], arguments[7], arguments[8],
                                       arguments[9]));
        EXPECT_THAT(delivered(), ElementsAre(count == 10 ? "0 ten(10,11,12,13,14,15,16,17,18,19)"
                                             : count > 1 ? "0 numbers(10,11)"
                                                         : "0 nothing()"));
    }
}

TEST_F(Signal_sender, takes_the_arguments_up_to_the_first_without_a_name)
{
    Receiver receiver(calls);
    sender.connect("p", "2changed(int)", &receiver, "1number(int)");
    sender.connect("p", "2changed(int,int)", &receiver, "1numbers(int,int)");
    sender.connect("p", "2changed()", &receiver, "1nothing()");
    const int value = 3;
    for (const char* const no_name : {static_cast<const char*>(nullptr), ""}) {
        const QGenericArgument nameless(no_name, &value);
        EXPECT_TRUE(sender.emit_signal("p", "changed", Q_ARG(int, 5), nameless, Q_ARG(int, 6)));
        EXPECT_THAT(delivered(), ElementsAre("0 number(5)"));
        EXPECT_TRUE(sender.emit_signal("p", "changed", nameless, Q_ARG(int, 5), Q_ARG(int, 6)));
        EXPECT_THAT(delivered(), ElementsAre("0 nothing()"));
    }
}

TEST_F(Signal_sender, delivers_a_signal_of_any_length)
{
    Receiver receiver(calls);
    for (const std::size_t length : {0U, 1U, 200U, 250U, 251U, 252U, 253U, 254U, 255U, 256U, 257U, 5000U}) {
        SCOPED_TRACE(length);
        const std::string name(length, 'n');
        ASSERT_TRUE(sender.connect("p", ("2" + name + "(int)").c_str(), &receiver, "1number(int)"));
        EXPECT_TRUE(sender.emit_signal("p", name.c_str(), Q_ARG(int, 1)));
        EXPECT_THAT(delivered(), ElementsAre("0 number(1)"));
    }
}

TEST_F(Signal_sender, calls_nothing_for_another_signal_of_the_prefix_and_leaves_no_entry_behind)
{
    Receiver receiver(calls);
    sender.connect("p", "2changed(int)", &receiver, "1number(int)");
    const std::string before = printed(sender);
    EXPECT_TRUE(sender.emit_signal("p", "unknown", Q_ARG(int, 1)));
    EXPECT_TRUE(sender.emit_signal("p", "changed"));
    EXPECT_TRUE(sender.emit_signal("p", "changed(int)"));
    EXPECT_TRUE(sender.emit_signal("p", "2changed", Q_ARG(int, 1))); // a code character is part of the name
    EXPECT_TRUE(sender.emit_signal("p", "", Q_ARG(int, 1)));
    EXPECT_TRUE(sender.emit_signal("p", nullptr, Q_ARG(int, 1)));
    EXPECT_THAT(delivered(), IsEmpty());
    EXPECT_EQ(before, printed(sender));
    EXPECT_EQ(0, sender.connected("p", "2unknown(int)"));
}

TEST_F(Signal_sender, refuses_an_unknown_prefix_in_silence)
{
    Receiver receiver(calls);
    sender.connect("p", "2changed(int)", &receiver, "1number(int)");
    const std::string before = printed(sender);
    const Qt_output output;
    for (const char* const prefix : {"q", "P", "pp", "", static_cast<const char*>(nullptr)})
        EXPECT_FALSE(emit_number(1, prefix));
    EXPECT_THAT(delivered(), IsEmpty());
    EXPECT_THAT(Qt_output::take(), IsEmpty());
    EXPECT_EQ(before, printed(sender));
}

TEST_F(Signal_sender, compares_the_types_of_an_emission_unnormalised)
{
    Receiver receiver(calls);
    sender.connect("p", "2changed(const QString&)", &receiver, "1text(const QString&)");
    EXPECT_TRUE(sender.emit_signal("p", "changed", Q_ARG(const QString&, "a")));
    EXPECT_TRUE(sender.emit_signal("p", "changed", QArgument<QString>(" QString", "b")));
    EXPECT_THAT(delivered(), IsEmpty());
    EXPECT_TRUE(sender.emit_signal("p", "changed", Q_ARG(QString, "c")));
    EXPECT_THAT(delivered(), ElementsAre("0 text(c)"));
}

TEST_F(Signal_sender, keeps_prefixes_and_signals_apart)
{
    Receiver receiver(calls);
    sender.connect("p", "2changed(int)", &receiver, "1number(int)");
    sender.connect("q", "2changed(int)", &receiver, "1answer(int)");
    sender.connect("p", "2changed()", &receiver, "1nothing()");
    EXPECT_TRUE(emit_number(1, "q"));
    EXPECT_THAT(delivered(), ElementsAre("0 answer(1)"));
    EXPECT_TRUE(sender.emit_signal("p", "changed"));
    EXPECT_THAT(delivered(), ElementsAre("0 nothing()"));
    EXPECT_EQ(1, sender.connected("q", "2changed(int)"));
    EXPECT_EQ(0, sender.connected("q", "2changed()"));
}

TEST_F(Signal_sender, takes_a_null_prefix_for_an_empty_one)
{
    Receiver receiver(calls);
    sender.connect(nullptr, "2changed(int)", &receiver, "1number(int)");
    sender.connect("", "2changed(int)", &receiver, "1answer(int)");
    EXPECT_EQ("Signal sender:\n    P:\n        Sig:changed(int)\n"
              "            Slot:number(int)\n            Slot:answer(int)\n",
              printed(sender));
    EXPECT_EQ(1, sender.connected(nullptr, "2changed(int)"));
    EXPECT_EQ(1, sender.connected("", "2changed(int)"));
    EXPECT_TRUE(emit_number(1, nullptr));
    EXPECT_TRUE(emit_number(2, ""));
    EXPECT_THAT(delivered(), ElementsAre("0 number(1)", "0 answer(1)", "0 number(2)", "0 answer(2)"));
}

TEST_F(Signal_sender, keeps_senders_apart)
{
    Receiver receiver(calls);
    Sender other;
    sender.connect("p", "2changed(int)", &receiver, "1number(int)");
    EXPECT_FALSE(other.emit_signal("p", "changed", Q_ARG(int, 1)));
    EXPECT_FALSE(other.disconnect(nullptr, nullptr, nullptr, nullptr));
    EXPECT_TRUE(other.empty());
    EXPECT_TRUE(emit_number(1));
    EXPECT_THAT(delivered(), ElementsAre("0 number(1)"));
}

TEST_F(Signal_sender, still_delivers_what_was_emitted_before_it_was_destroyed)
{
    Receiver receiver(calls);
    {
        Sender brief;
        brief.connect("p", "2changed(int)", &receiver, "1number(int)");
        brief.emit_signal("p", "changed", Q_ARG(int, 1));
    }
    EXPECT_THAT(delivered(), ElementsAre("0 number(1)"));
}

// ---- which slot

TEST_F(Signal_sender, finds_any_method_that_Qt_knows_of)
{
    Receiver receiver(calls);
    const QSignalSpy relayed(&receiver, &Receiver::relayed);
    for (const char* const slot : {"1number(int)", "1nothing()", "1invokable(int)", "1relayed(int)",
                                   "1hidden()", "1defaulted(int)", "1defaulted()", "1answer(int)"})
        EXPECT_TRUE(sender.connect("p", "2changed(int)", &receiver, slot)) << slot;
    EXPECT_TRUE(emit_number(5));
    EXPECT_THAT(delivered(), ElementsAre("0 number(5)", "0 nothing()", "0 invokable(5)", "0 hidden()",
                                         "0 defaulted(5)", "0 defaulted(7)", "0 answer(5)"));
    ASSERT_EQ(1, relayed.count());
    EXPECT_EQ(5, relayed.at(0).at(0).toInt());
}

TEST_F(Signal_sender, finds_an_inherited_slot)
{
    auto* const receiver = new Receiver(calls);
    const QPointer<Receiver> guard(receiver);
    ASSERT_TRUE(sender.connect("p", "2changed(int)", receiver, "1deleteLater()"));
    emit_number(1);
    EXPECT_FALSE(guard.isNull());
    Application::run_event_loop();
    Application::run_event_loop();
    EXPECT_TRUE(guard.isNull());
}

TEST_F(Signal_sender, takes_the_base_classs_slot_where_two_have_the_signature)
{
    Receiver receiver(calls);
    ASSERT_TRUE(sender.connect("p", "2changed(int)", &receiver, "1shadowed()"));
    emit_number(1);
    EXPECT_THAT(delivered(), ElementsAre("0 Base::shadowed()"));
}

TEST_F(Signal_sender, normalises_the_slot)
{
    struct Case {
        const char *slot, *normalised;
    };
    for (const Case& each :
         {Case{"1number(int)", "number(int)"},
          {"1 number ( int ) ", "number(int)"},
          {"1number (int)", "number(int)"},
          {"1\tnumber\t(int)", "number(int)"},
          {"1number(const int&)", "number(int)"},
          {"1number(const int)", "number(int)"},
          {"1text(QString)", "text(QString)"},
          {"1text(const QString&)", "text(QString)"},
          {"1text( QString const & )", "text(QString)"},
          {"1both(int,const QString &)", "both(int,QString)"},
          {"1both(\tint ,\tQString)", "both(int,QString)"},
          {"1unsigned_number(unsigned)", "unsigned_number(uint)"},
          {"1unsigned_number(unsigned int)", "unsigned_number(uint)"},
          {"1unsigned_number(uint)", "unsigned_number(uint)"},
          {"1templates(QMap<QString,QList<int> >)", "templates(QMap<QString,QList<int> >)"},
          {"1templates(QMap<QString, QList<int>>)", "templates(QMap<QString,QList<int> >)"},
          {"1nothing( )", "nothing()"},
          {"1nothing(void)", "nothing()"}}) {
        SCOPED_TRACE(each.slot);
        Receiver receiver(calls);
        Sender fresh;
        ASSERT_TRUE(fresh.connect("p", "2changed()", &receiver, each.slot));
        EXPECT_EQ("Signal sender:\n    P:p\n        Sig:changed()\n            Slot:" +
                      std::string(each.normalised) + "\n",
                  printed(fresh));
        EXPECT_TRUE(fresh.disconnect("p", "2changed()", nullptr, each.slot));
        EXPECT_TRUE(fresh.empty());
    }
}

TEST_F(Signal_sender, finds_a_slot_by_any_spelling_that_Qt_normalises_to_it)
{
    Receiver receiver(calls);
    const QMetaObject& meta = *receiver.metaObject();
    std::vector<std::string> slots_by_index;
    for (int i = 0; i < meta.methodCount(); ++i)
        slots_by_index.push_back(
            QMetaObject::normalizedSignature(meta.method(i).methodSignature().constData()).toStdString());
    const Qt_output silenced;
    std::mt19937 random(2);
    const auto below = [&random](std::size_t limit) { return random() % limit; };
    int found = 0;
    constexpr int ROUNDS = 20000;
    for (int i = 0; i < ROUNDS && !HasFailure(); ++i) {
        std::string text = slots_by_index[below(slots_by_index.size())];
        for (std::size_t count = below(5); count > 0; --count) {
            std::size_t at = below(text.size() + 1); // in the middle of a word, too
            if (below(3) != 0)
                at = std::min(text.find_first_of("(,<>)", at), text.size()) + below(2);
            text.insert(std::min(at, text.size()), 1, " \t"[below(2)]);
        }
        SCOPED_TRACE(text);
        const std::string normalised = QMetaObject::normalizedSignature(text.c_str()).toStdString();
        const bool is_slot =
            std::find(slots_by_index.begin(), slots_by_index.end(), normalised) != slots_by_index.end();
        found += is_slot ? 1 : 0;
        Sender fresh;
        EXPECT_EQ(is_slot, fresh.connect("p", "2f()", &receiver, ("1" + text).c_str()));
        EXPECT_EQ(is_slot ? "Signal sender:\n    P:p\n        Sig:f()\n            Slot:" + normalised + "\n"
                          : "Signal sender NULL\n",
                  printed(fresh));
        Qt_output::take();
    }
    EXPECT_LE(ROUNDS / 4, found);
    EXPECT_GE(ROUNDS * 3 / 4, found);
}

TEST_F(Signal_sender, normalises_the_signal_and_skips_its_first_character_whatever_it_is)
{
    Receiver receiver(calls);
    for (const char* const signal : {"2changed(QString)", "1changed(const QString&)",
                                     " changed( QString const & )", "xchanged (const QString)"}) {
        SCOPED_TRACE(signal);
        ASSERT_TRUE(sender.connect("p", signal, &receiver, "1text(QString)"));
        EXPECT_EQ(1, sender.connected("p", signal));
        EXPECT_EQ("Signal sender:\n    P:p\n        Sig:changed(QString)\n            Slot:text(QString)\n",
                  printed(sender));
        EXPECT_TRUE(sender.emit_signal("p", "changed", Q_ARG(QString, "a")));
        EXPECT_THAT(delivered(), ElementsAre("0 text(a)"));
        EXPECT_TRUE(sender.disconnect("p", signal, &receiver, "1text(QString)"));
        EXPECT_EQ(0, sender.connected("p", signal));
    }
}

TEST_F(Signal_sender, normalises_any_signal_as_Qt_does)
{
    const std::vector<const char*> parts = {
        "int",     "void", "unsigned", "const", "long", "signed", "char", "struct", "class", "enum",
        "QString", "A_1",  "short",    "uint",  "(",    ")",      ",",    "(",      ")",     ",",
        ",",       " ",    "\t",       "*",     "&",    "<",      ">",    "::"};
    Receiver receiver(calls);
    std::mt19937 random(1);
    const auto below = [&random](std::size_t limit) { return random() % limit; };
    int unusual = 0;
    for (int i = 0; i < 20000 && !HasFailure(); ++i) {
        std::string text = "f(";
        const std::size_t most = i % 2 == 0 ? 14 : parts.size(); // every other one of words alone
        for (std::size_t count = below(6); count > 0; --count)
            text += std::string(parts[below(most)]) + (i % 2 == 0 && count > 1 ? "," : "");
        text += below(20) == 0 ? "" : ")";
        SCOPED_TRACE(text);
        const std::string normalised = QMetaObject::normalizedSignature(text.c_str()).toStdString();
        unusual += text == normalised ? 0 : 1;
        Sender fresh;
        ASSERT_TRUE(fresh.connect("p", ("2" + text).c_str(), &receiver, "1nothing()"));
        EXPECT_EQ("Signal sender:\n    P:p\n        Sig:" + normalised + "\n            Slot:nothing()\n",
                  printed(fresh));
        EXPECT_EQ(1, fresh.connected("p", ("2" + text).c_str()));
    }
    EXPECT_LE(4000, unusual);
    EXPECT_GE(16000, unusual);
}

TEST_F(Signal_sender, reads_nothing_before_the_signal)
{
    constexpr char SIGNAL[] = "2changed(int)";
    const Guarded_page page;
    auto* const signal = reinterpret_cast<char*>(page.begin());
    std::memcpy(signal, SIGNAL, sizeof SIGNAL);
    Receiver receiver(calls);
    ASSERT_TRUE(sender.connect("p", signal, &receiver, "1nothing()"));
    EXPECT_EQ(1, sender.connected("p", signal));
}

TEST_F(Signal_sender, has_no_signature_for_a_signal_without_one)
{
    Receiver receiver(calls);
    for (const char* const signal : {"", "2"}) {
        ASSERT_TRUE(sender.connect("p", signal, &receiver, "1nothing()"));
        EXPECT_EQ(1, sender.connected("p", "2"));
        EXPECT_EQ(1, sender.connected("p", ""));
        EXPECT_EQ(1, sender.connected("p", nullptr));
        EXPECT_EQ("Signal sender:\n    P:p\n        Sig:\n            Slot:nothing()\n", printed(sender));
        EXPECT_TRUE(sender.emit_signal("p", ""));
        EXPECT_THAT(delivered(), IsEmpty());
        EXPECT_TRUE(sender.disconnect("p", "2", nullptr, nullptr));
    }
}

TEST_F(Signal_sender, refuses_a_slot_that_the_receiver_does_not_have)
{
    Receiver receiver(calls);
    const Qt_output output;
    for (const char* const slot :
         {"1missing()", "1number()", "1number(QString)", "1number(int,int)", "1numbe(int)", "1number(int",
          "1number", "1numbers(int)", "1Number(int)", "1", "1 ", "11number(int)", "1number(int&)",
          "1text(QString&)", "1num ber(int)"}) {
        SCOPED_TRACE(slot);
        EXPECT_FALSE(sender.connect("p", "2changed(int)", &receiver, slot));
        EXPECT_THAT(Qt_output::take(), ElementsAre("debug default: Signal_sender could not find slot:  " +
                                                   std::string(slot) + " In Receiver"));
    }
    EXPECT_EQ("Signal sender NULL\n", printed(sender));
}

TEST_F(Signal_sender, refuses_a_slot_string_without_its_code)
{
    Receiver receiver(calls);
    const Qt_output output;
    for (const char* const slot : {"number(int)", "2number(int)", " 1number(int)", ""}) {
        SCOPED_TRACE(slot);
        EXPECT_FALSE(sender.connect("p", "2changed(int)", &receiver, slot));
        EXPECT_THAT(Qt_output::take(), ElementsAre("debug default: This is not a slot\n",
                                                   "debug default: Signal_sender could not find slot:  " +
                                                       std::string(slot) + " In Receiver"));
    }
    EXPECT_EQ("Signal sender NULL\n", printed(sender));
}

TEST_F(Signal_sender, refuses_a_null_receiver_or_slot)
{
    Receiver receiver(calls);
    const Qt_output output;
    EXPECT_FALSE(sender.connect("p", "2changed(int)", nullptr, "1number(int)"));
    EXPECT_THAT(Qt_output::take(),
                ElementsAre("debug default: Signal_sender could not find slot:  1number(int) In "));
    EXPECT_FALSE(sender.connect("p", "2changed(int)", nullptr, "number(int)"));
    EXPECT_THAT(Qt_output::take(),
                ElementsAre("debug default: Signal_sender could not find slot:  number(int) In "));
    EXPECT_FALSE(sender.connect("p", "2changed(int)", &receiver, nullptr));
    EXPECT_THAT(Qt_output::take(),
                ElementsAre("debug default: Signal_sender could not find slot:   In Receiver"));
    EXPECT_FALSE(sender.connect("p", nullptr, nullptr, nullptr));
    EXPECT_THAT(Qt_output::take(), ElementsAre("debug default: Signal_sender could not find slot:   In "));
    EXPECT_EQ("Signal sender NULL\n", printed(sender));
}

TEST_F(Signal_sender, changes_nothing_when_a_slot_is_refused)
{
    Receiver receiver(calls);
    auto doomed = std::make_unique<Receiver>(calls);
    sender.connect("p", "2changed(int)", doomed.get(), "1number(int)");
    doomed.reset();
    const std::string before = printed(sender);
    const Qt_output output;
    EXPECT_FALSE(sender.connect("p", "2changed(int)", &receiver, "1missing()"));
    EXPECT_FALSE(sender.connect("q", "2changed(int)", &receiver, "number(int)"));
    EXPECT_EQ(before, printed(sender));
    EXPECT_EQ("Signal sender:\n    P:p\n        Sig:changed(int)\n            Slot:\n", before);
}

TEST_F(Signal_sender, asserts_that_a_signal_to_connect_is_not_null)
{
    Receiver receiver(calls);
    EXPECT_EXIT(sender.connect("p", nullptr, &receiver, "1nothing()"), testing::KilledBySignal(SIGABRT),
                "util/qt/Signal_sender.cpp.*signal != nullptr");
}

// ---- slots whose meta-object is not normalised

namespace {

/// What the meta-object compiler would not write: names and types with white space to take out.
class Hand_made : public QObject {
public:
    const QMetaObject* metaObject() const override { return &meta; }
    int qt_metacall(QMetaObject::Call call, int id, void** arguments) override
    {
        const int own = QObject::qt_metacall(call, id, arguments);
        if (own >= 0 && call == QMetaObject::InvokeMetaMethod)
            called.push_back(own);
        return own - 3;
    }

    std::vector<int> called;

private:
    struct Strings {
        QByteArrayData headers[6];
        char texts[6][16];
    };
    static const Strings strings;
    static const std::array<uint, 34> table;
    static const QMetaObject meta;
};

// A header finds its text by the distance to it.
#define HEADER(INDEX, LENGTH)                                                                                \
    Q_STATIC_BYTE_ARRAY_DATA_HEADER_INITIALIZER_WITH_OFFSET(                                                 \
        LENGTH, static_cast<qptrdiff>(offsetof(Strings, texts) + (INDEX) * (16 - sizeof(QByteArrayData))))
const Hand_made::Strings Hand_made::strings = {
    {HEADER(0, 9), HEADER(1, 0), HEADER(2, 4), HEADER(3, 15), HEADER(4, 9), HEADER(5, 8)},
    {"Hand_made", "", "text", "const QString &", " odd name", "odd name"}};
#undef HEADER

// clang-format off
const std::array<uint, 34> Hand_made::table = {
    8, 0, 0, 0, 3, 14, 0, 0, 0, 0, 0, 0, 0, 0, // revision, class name, three methods from 14, nothing else
    2, 1, 29, 1, 0x0a,                         // name, number of arguments, where they are, no tag, public slot
    4, 0, 32, 1, 0x0a,
    5, 0, 33, 1, 0x0a,
    QMetaType::Void, 0x80000000 | 3, 1,        // types of result and argument (an unresolved name), its name
    QMetaType::Void,
    QMetaType::Void};
// clang-format on

const QMetaObject Hand_made::meta = {{QMetaObject::SuperData::link<QObject::staticMetaObject>(),
                                      strings.headers, table.data(), nullptr, nullptr, nullptr}};

} // namespace

TEST_F(Signal_sender, normalises_the_methods_of_the_receiver_too)
{
    Hand_made receiver;
    const int first = receiver.metaObject()->methodOffset();
    ASSERT_EQ(3, receiver.metaObject()->methodCount() - first);
    ASSERT_EQ("text(const QString &)", receiver.metaObject()->method(first).methodSignature());
    ASSERT_EQ(" odd name()", receiver.metaObject()->method(first + 1).methodSignature());
    EXPECT_TRUE(sender.connect("p", "2changed()", &receiver, "1text(QString)"));
    EXPECT_TRUE(sender.connect("p", "2changed(int)", &receiver, "1odd name()")); // two have it: the first
    EXPECT_EQ("Signal sender:\n    P:p\n        Sig:changed()\n            Slot:text(QString)\n"
              "        Sig:changed(int)\n            Slot:odd name()\n",
              printed(sender));
    emit_number(1);
    Application::run_event_loop();
    EXPECT_THAT(receiver.called, ElementsAre(1));
    EXPECT_TRUE(sender.disconnect(nullptr, nullptr, nullptr, "1text(const QString&)"));
    EXPECT_TRUE(sender.disconnect("p", "2changed(int)", &receiver, "1 odd  name()"));
    EXPECT_EQ("Signal sender NULL\n", printed(sender));
}

// ---- deliveries that fail

TEST_F(Signal_sender, keeps_a_connection_whose_slot_takes_more_arguments_than_are_sent)
{
    Receiver receiver(calls);
    sender.connect("p", "2changed(int)", &receiver, "1numbers(int,int)");
    sender.connect("p", "2changed(int)", &receiver, "1number(int)");
    const std::string before = printed(sender);
    EXPECT_TRUE(emit_number(1));
    EXPECT_TRUE(emit_number(2));
    EXPECT_THAT(delivered(), ElementsAre("0 number(1)", "0 number(2)"));
    EXPECT_EQ(before, printed(sender));
}

TEST_F(Signal_sender, keeps_a_connection_when_a_type_is_unknown_to_Qt)
{
    Receiver receiver(calls);
    sender.connect("p", "2changed(Unregistered)", &receiver, "1nothing()");
    const std::string before = printed(sender);
    const Unregistered value;
    const Qt_output output;
    EXPECT_TRUE(sender.emit_signal("p", "changed", Q_ARG(Unregistered, value)));
    EXPECT_THAT(Qt_output::take(),
                ElementsAre("warning default: QMetaMethod::invoke: Unable to handle unregistered "
                            "datatype 'Unregistered'"));
    EXPECT_THAT(delivered(), IsEmpty());
    EXPECT_EQ(before, printed(sender));
}

TEST_F(Signal_sender, drops_receivers_that_are_gone_around_one_whose_delivery_fails)
{
    auto first = std::make_unique<Receiver>(calls);
    Receiver failing(calls);
    auto last = std::make_unique<Receiver>(calls);
    sender.connect("p", "2changed(int)", first.get(), "1number(int)");
    sender.connect("p", "2changed(int)", &failing, "1numbers(int,int)");
    sender.connect("p", "2changed(int)", last.get(), "1number(int)");
    first.reset();
    last.reset();
    EXPECT_TRUE(emit_number(1));
    EXPECT_EQ("Signal sender:\n    P:p\n        Sig:changed(int)\n            Slot:numbers(int,int)\n",
              printed(sender));
}

// ---- receivers that are gone

TEST_F(Signal_sender, drops_the_prefix_when_it_emits_to_its_last_receiver_and_that_is_gone)
{
    auto receiver = std::make_unique<Receiver>(calls);
    sender.connect("p", "2changed(int)", receiver.get(), "1number(int)");
    receiver.reset();
    EXPECT_FALSE(sender.empty());
    EXPECT_EQ(1, sender.connected("p", "2changed(int)"));
    EXPECT_EQ("Signal sender:\n    P:p\n        Sig:changed(int)\n            Slot:\n", printed(sender));
    EXPECT_TRUE(emit_number(1));
    EXPECT_THAT(delivered(), IsEmpty());
    EXPECT_TRUE(sender.empty());
    EXPECT_EQ(0, sender.connected("p", "2changed(int)"));
    EXPECT_EQ("Signal sender:\n", printed(sender));
    EXPECT_FALSE(emit_number(1));
}

TEST_F(Signal_sender, keeps_the_prefix_when_only_one_of_its_signals_has_nobody_left)
{
    Receiver receiver(calls);
    auto doomed = std::make_unique<Receiver>(calls);
    sender.connect("p", "2changed(int)", doomed.get(), "1number(int)");
    sender.connect("p", "2changed()", &receiver, "1nothing()");
    doomed.reset();
    EXPECT_TRUE(emit_number(1));
    EXPECT_EQ("Signal sender:\n    P:p\n        Sig:changed()\n            Slot:nothing()\n",
              printed(sender));
}

TEST_F(Signal_sender, drops_receivers_that_are_gone_from_the_signal_that_is_connected_again)
{
    Receiver receiver(calls);
    auto doomed = std::make_unique<Receiver>(calls);
    sender.connect("p", "2changed(int)", doomed.get(), "1number(int)");
    sender.connect("p", "2changed(int)", &receiver, "1number(int)");
    sender.connect("p", "2changed(int)", doomed.get(), "1answer(int)");
    sender.connect("p", "2other(int)", doomed.get(), "1number(int)");
    sender.connect("q", "2changed(int)", doomed.get(), "1number(int)");
    doomed.reset();
    EXPECT_TRUE(sender.connect("p", "2changed(int)", &receiver, "1nothing()"));
    EXPECT_EQ("Signal sender:\n"
              "    P:p\n        Sig:changed(int)\n            Slot:number(int)\n            Slot:nothing()\n"
              "        Sig:other(int)\n            Slot:\n"
              "    P:q\n        Sig:changed(int)\n            Slot:\n",
              printed(sender));
}

TEST_F(Signal_sender, does_not_count_receivers_that_are_gone_among_the_disconnected)
{
    auto doomed = std::make_unique<Receiver>(calls);
    sender.connect("p", "2changed(int)", doomed.get(), "1number(int)");
    doomed.reset();
    EXPECT_FALSE(sender.disconnect(nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ("Signal sender NULL\n", printed(sender));
}

TEST_F(Signal_sender, drops_receivers_that_are_gone_from_every_list_that_a_disconnect_looks_through)
{
    Receiver receiver(calls);
    Receiver stranger(calls);
    auto doomed = std::make_unique<Receiver>(calls);
    for (const char* const prefix : {"p", "q"})
        for (const char* const signal : {"2changed(int)", "2other(int)"}) {
            sender.connect(prefix, signal, doomed.get(), "1number(int)");
            sender.connect(prefix, signal, &receiver, "1number(int)");
        }
    doomed.reset();
    EXPECT_FALSE(sender.disconnect("p", "2changed(int)", &stranger, nullptr));
    EXPECT_EQ("Signal sender:\n"
              "    P:p\n        Sig:changed(int)\n            Slot:number(int)\n"
              "        Sig:other(int)\n            Slot:\n            Slot:number(int)\n"
              "    P:q\n        Sig:changed(int)\n            Slot:\n            Slot:number(int)\n"
              "        Sig:other(int)\n            Slot:\n            Slot:number(int)\n",
              printed(sender));
}

TEST_F(Signal_sender, frees_the_private_data_that_an_emission_left_empty_in_any_disconnect)
{
    Receiver receiver(calls);
    const std::array<std::function<bool()>, 4> disconnects{
        [this] { return sender.disconnect(nullptr, nullptr, nullptr, nullptr); },
        [&] { return sender.disconnect("unknown", "2changed(int)", &receiver, "1number(int)"); },
        [&] { return sender.disconnect("p", nullptr, &receiver, "1missing()"); },
        [&] { return sender.disconnect("p", nullptr, &receiver, ""); }};
    for (const auto& disconnect : disconnects) {
        auto doomed = std::make_unique<Receiver>(calls);
        sender.connect("p", "2changed(int)", doomed.get(), "1number(int)");
        doomed.reset();
        emit_number(1);
        ASSERT_EQ("Signal sender:\n", printed(sender));
        EXPECT_FALSE(disconnect());
        EXPECT_EQ("Signal sender NULL\n", printed(sender));
    }
}

// ---- disconnect

TEST_F(Signal_sender, removes_every_connection_when_all_arguments_are_null)
{
    Receiver receiver(calls);
    for (const char* const prefix : {"", "p", "q"})
        for (const char* const signal : {"2changed(int)", "2other(int)"})
            sender.connect(prefix, signal, &receiver, "1number(int)");
    EXPECT_TRUE(sender.disconnect(nullptr, nullptr, nullptr, nullptr));
    EXPECT_TRUE(sender.empty());
    EXPECT_EQ("Signal sender NULL\n", printed(sender));
    EXPECT_FALSE(emit_number(1));
    EXPECT_THAT(delivered(), IsEmpty());
}

TEST_F(Signal_sender, disconnects_only_what_fits_all_arguments)
{
    Receiver a(calls, 1);
    Receiver b(calls, 2);
    const Receiver stranger(calls, 3);
    const char* const null = nullptr;
    struct Case {
        const char *prefix, *signal;
        const QObject* receiver;
        const char* slot;
        const char* remaining; // of the twelve, in their order
    };
    struct Connection {
        const char *prefix, *signal;
        const QObject* receiver;
        const char *slot, *call;
    };
    const std::array<Connection, 12> connections{{
        {"", "changed", &a, "1number(int)", "1 number(5)"},  // a
        {"", "changed", &a, "1nothing()", "1 nothing()"},    // b
        {"", "changed", &b, "1number(int)", "2 number(5)"},  // c
        {"", "other", &a, "1number(int)", "1 number(5)"},    // d
        {"", "other", &a, "1nothing()", "1 nothing()"},      // e
        {"", "other", &b, "1number(int)", "2 number(5)"},    // f
        {"p", "changed", &a, "1number(int)", "1 number(5)"}, // g
        {"p", "changed", &a, "1nothing()", "1 nothing()"},   // h
        {"p", "changed", &b, "1number(int)", "2 number(5)"}, // i
        {"p", "other", &a, "1number(int)", "1 number(5)"},   // j
        {"p", "other", &a, "1nothing()", "1 nothing()"},     // k
        {"p", "other", &b, "1number(int)", "2 number(5)"},   // l
    }};
    const Case cases[] = {
        {null, null, nullptr, null, "------------"},
        {null, "", nullptr, null, "------------"},
        {null, null, nullptr, "", "------------"},
        {"p", null, nullptr, null, "abcdef------"},
        {"", null, nullptr, null, "------ghijkl"},
        {"", "", nullptr, "", "------ghijkl"},
        {"q", null, nullptr, null, "abcdefghijkl"},
        {null, "2changed(int)", nullptr, null, "---def---jkl"},
        {null, "? changed( const int & )", nullptr, null, "---def---jkl"},
        {"p", "2changed(int)", nullptr, null, "abcdef---jkl"},
        {"p", "2changed(int)", nullptr, "", "abcdef---jkl"},
        {null, "2changed()", nullptr, null, "abcdefghijkl"},
        {null, "changed(int)", nullptr, null, "abcdefghijkl"},
        {null, "2", nullptr, null, "abcdefghijkl"},
        {null, null, &a, null, "--c--f--i--l"},
        {null, null, &b, null, "ab-de-gh-jk-"},
        {null, null, &stranger, null, "abcdefghijkl"},
        {"p", "", &b, null, "abcdefgh-jk-"},
        {"p", "2other(int)", &a, null, "abcdefghi--l"},
        {null, null, nullptr, "1number(int)", "-b--e--h--k-"},
        {null, null, nullptr, "1 number( const int & )", "-b--e--h--k-"},
        {null, null, nullptr, "?number(int)", "-b--e--h--k-"},
        {null, null, nullptr, "number(int)", "abcdefghijkl"},
        {null, null, nullptr, "1", "abcdefghijkl"},
        {null, null, nullptr, "1missing()", "abcdefghijkl"},
        {"", "2other(int)", nullptr, "1nothing()", "abcd-fghijkl"},
        {null, null, &a, "1nothing()", "a-cd-fg-ij-l"},
        {null, "2other(int)", &b, "1number(int)", "abcde-ghijk-"},
        {"p", "2other(int)", &b, "1 number( const int & )", "abcdefghijk-"},
        {null, null, &b, "1nothing()", "abcdefghijkl"},
        {null, null, &a, "1missing()", "abcdefghijkl"},
        {null, null, &a, "2number(int)", "abcdefghijkl"},
        {null, null, &a, "number(int)", "abcdefghijkl"},
        {null, null, &a, "1", "abcdefghijkl"},
        {null, null, &a, "", "abcdefghijkl"},
        {"p", "2other(int)", &a, "", "abcdefghijkl"},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        const Case& each = cases[i];
        SCOPED_TRACE(testing::Message() << "case " << i);
        Sender fresh;
        for (const Connection& one : connections)
            fresh.connect(one.prefix, ("2" + std::string(one.signal) + "(int)").c_str(), one.receiver,
                          one.slot);
        const std::string remaining = each.remaining;
        const Qt_output output;
        EXPECT_EQ(remaining.find('-') != std::string::npos,
                  fresh.disconnect(each.prefix, each.signal, each.receiver, each.slot));
        EXPECT_EQ(remaining == "------------", printed(fresh) == "Signal sender NULL\n");

        std::vector<std::string> expected;
        for (std::size_t j = 0; j < connections.size(); ++j)
            if (remaining[j] != '-')
                expected.emplace_back(connections[j].call);
        for (const char* const prefix : {"", "p"})
            for (const char* const signal : {"changed", "other"})
                fresh.emit_signal(prefix, signal, Q_ARG(int, 5));
        EXPECT_EQ(expected, delivered());
    }
}

TEST_F(Signal_sender, removes_both_of_two_equal_connections_at_once)
{
    Receiver receiver(calls);
    sender.connect("p", "2changed(int)", &receiver, "1number(int)");
    sender.connect("p", "2changed(int)", &receiver, "1nothing()");
    sender.connect("p", "2changed(int)", &receiver, "1number(int)");
    EXPECT_TRUE(sender.disconnect("p", "2changed(int)", &receiver, "1number(int)"));
    emit_number(1);
    EXPECT_THAT(delivered(), ElementsAre("0 nothing()"));
}

TEST_F(Signal_sender, tells_two_methods_with_one_signature_apart_by_their_index_only_with_a_receiver)
{
    Receiver receiver(calls);
    Base base(calls, 1);
    sender.connect("p", "2changed(int)", &receiver, "1shadowed()");
    sender.connect("p", "2changed(int)", &base, "1shadowed()");
    EXPECT_TRUE(sender.disconnect("p", "2changed(int)", &receiver, "1shadowed()"));
    emit_number(1);
    EXPECT_THAT(delivered(), ElementsAre("1 Base::shadowed()"));
}

TEST_F(Signal_sender, removes_nothing_at_all_when_the_receiver_has_no_such_slot)
{
    Receiver receiver(calls);
    auto doomed = std::make_unique<Receiver>(calls);
    sender.connect("p", "2changed(int)", doomed.get(), "1number(int)");
    sender.connect("p", "2changed(int)", &receiver, "1number(int)");
    doomed.reset();
    const std::string before = printed(sender);
    const Qt_output output;
    for (const char* const slot : {"", "1", "1missing()"})
        EXPECT_FALSE(sender.disconnect("p", "2changed(int)", &receiver, slot)) << slot;
    EXPECT_THAT(Qt_output::take(), IsEmpty());
    EXPECT_FALSE(sender.disconnect("p", "2changed(int)", &receiver, "number(int)"));
    EXPECT_THAT(Qt_output::take(), ElementsAre("debug default: This is not a slot\n"));
    EXPECT_EQ(before, printed(sender));
    EXPECT_TRUE(sender.disconnect("p", "2changed(int)", &receiver, "1number(int)"));
    EXPECT_EQ("Signal sender NULL\n", printed(sender));
}

// ---- print

TEST_F(Signal_sender, prints_prefixes_and_signals_in_the_order_of_their_bytes)
{
    Receiver receiver(calls, 1);
    for (const char* const prefix : {"b", "\xC3\xA9", "", "a", "aa", "B", "%1"})
        ASSERT_TRUE(sender.connect(prefix, "2changed()", &receiver, "1nothing()"));
    for (const char* const signal :
         {"2changed(int)", "2\xC3\xA9()", "2change()", "2Z()", "2changed(QString)"})
        ASSERT_TRUE(sender.connect("a", signal, &receiver, "1nothing()"));
    const QString one = "        Sig:changed()\n            Slot:nothing()\n";
    EXPECT_EQ("Signal sender:\n    P:\n" + one + "    P:%1\n" + one + "    P:B\n" + one + "    P:a\n" +
                  "        Sig:Z()\n            Slot:nothing()\n"
                  "        Sig:change()\n            Slot:nothing()\n" +
                  one +
                  "        Sig:changed(QString)\n            Slot:nothing()\n"
                  "        Sig:changed(int)\n            Slot:nothing()\n" +
                  QString::fromUtf8("        Sig:\xC3\xA9()\n            Slot:nothing()\n") + "    P:aa\n" +
                  one + "    P:b\n" + one + QString::fromUtf8("    P:\xC3\xA9\n") + one,
              sender.print());
}

// ---- threads

TEST_F(Signal_sender, delivers_in_the_thread_of_the_receiver)
{
    Event_thread thread;
    std::atomic<QThread*> delivering{nullptr};
    Actor there([&delivering] { delivering = QThread::currentThread(); });
    there.moveToThread(thread.get());
    ASSERT_TRUE(sender.connect("p", "2changed(int)", &there, "1act()"));
    Application::post([this] { emit_number(1); });
    thread.drain();
    EXPECT_EQ(thread.get(), delivering);
}

TEST_F(Signal_sender, queues_an_emission_inside_the_receivers_thread_too)
{
    Event_thread thread;
    std::atomic<int> delivered_there{0};
    Actor there([&delivered_there] { ++delivered_there; });
    there.moveToThread(thread.get());
    ASSERT_TRUE(sender.connect("p", "2changed(int)", &there, "1act()"));
    int at_once = -1;
    thread.run([&] {
        emit_number(1);
        at_once = delivered_there;
    });
    thread.drain();
    EXPECT_EQ(0, at_once);
    EXPECT_EQ(1, delivered_there);
}

TEST_F(Signal_sender, lets_a_slot_call_any_operation_of_its_own_sender)
{
    Receiver receiver(calls);
    int rounds = 0;
    std::vector<std::string> seen;
    Actor actor([&] {
        Sender another;
        seen.push_back(printed(sender));
        EXPECT_FALSE(sender.empty());
        EXPECT_EQ(1, sender.connected("p", "2changed(int)"));
        EXPECT_TRUE(sender.connect("p", "2changed(int)", &receiver, "1number(int)"));
        EXPECT_TRUE(another.connect("p", "2changed(int)", &receiver, "1answer(int)"));
        EXPECT_TRUE(another.emit_signal("p", "changed", Q_ARG(int, rounds)));
        EXPECT_TRUE(++rounds < 3 ? emit_number(rounds)
                                 : sender.disconnect(nullptr, nullptr, nullptr, nullptr));
    });
    ASSERT_TRUE(sender.connect("p", "2changed(int)", &actor, "1act()"));
    const std::string first = printed(sender);
    emit_number(0);
    EXPECT_TRUE(Application::run_event_loop_until([&rounds] { return rounds == 3; }));
    EXPECT_THAT(seen, ElementsAre(first, first + "            Slot:number(int)\n",
                                  first + "            Slot:number(int)\n            Slot:number(int)\n"));
    EXPECT_EQ("Signal sender NULL\n", printed(sender));
    EXPECT_THAT(delivered(), testing::UnorderedElementsAre("0 answer(0)", "0 number(1)", "0 answer(1)",
                                                           "0 number(2)", "0 number(2)", "0 answer(2)"));
}

TEST_F(Signal_sender, lets_a_slot_destroy_the_sender_and_its_receiver)
{
    auto owned = std::make_unique<Sender>();
    auto* const actor = new Actor([&owned] { owned.reset(); });
    const QPointer<Actor> guard(actor);
    ASSERT_TRUE(owned->connect("p", "2changed(int)", actor, "1act()"));
    ASSERT_TRUE(owned->connect("p", "2changed(int)", actor, "1deleteLater()"));
    owned->emit_signal("p", "changed", Q_ARG(int, 1));
    EXPECT_TRUE(Application::run_event_loop_until([&guard] {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        return guard.isNull();
    }));
    EXPECT_EQ(nullptr, owned);
}

TEST_F(Signal_sender, holds_no_lock_while_a_slot_runs)
{
    Event_thread thread;
    std::promise<void> running;
    std::promise<void> done;
    Actor there([&] {
        running.set_value();
        done.get_future().wait();
    });
    there.moveToThread(thread.get());
    sender.connect("p", "2changed(int)", &there, "1act()");
    Receiver here(calls);
    sender.connect("p", "2other(int)", &here, "1number(int)");
    emit_number(1);
    running.get_future().wait();
    EXPECT_TRUE(sender.emit_signal("p", "other", Q_ARG(int, 1)));
    EXPECT_TRUE(sender.disconnect("p", "2changed(int)", &there, "1act()"));
    done.set_value();
    thread.drain();
    EXPECT_THAT(delivered(), ElementsAre("0 number(1)"));
}

TEST_F(Signal_sender, makes_every_operation_of_any_sender_wait_for_the_one_in_progress)
{
    using std::chrono::milliseconds;
    Receiver receiver(calls);
    ASSERT_TRUE(sender.connect("p", "2changed(Watched)", &receiver, "1watched(Watched)"));
    auto other = std::make_unique<Sender>();
    const auto connect_other = [&] {
        return other->connect("p", "2changed(int)", &receiver, "1number(int)");
    };
    struct Operation {
        const char* name;
        std::function<void()> run;
        bool waits = true;
    };
    const std::array<Operation, 8> operations{{
        {"connect", [&] { EXPECT_TRUE(connect_other()); }},
        {"empty", [&] { EXPECT_FALSE(other->empty()); }},
        {"connected", [&] { EXPECT_EQ(1, other->connected("p", "2changed(int)")); }},
        {"emit_signal", [&] { EXPECT_TRUE(other->emit_signal("p", "changed", Q_ARG(int, 1))); }},
        {"print", [&] { EXPECT_NE("", printed(*other)); }},
        {"disconnect", [&] { EXPECT_TRUE(other->disconnect(nullptr, nullptr, nullptr, nullptr)); }},
        {"destructor", [&] { other.reset(); }},
        {"connect, whose slot is looked for before",
         [&] { EXPECT_FALSE(sender.connect("p", "2changed(int)", &receiver, "1missing()")); }, false},
    }};
    const Qt_output output;
    for (const Operation& operation : operations) {
        SCOPED_TRACE(operation.name);
        std::promise<void> inside;
        std::promise<void> go_on;
        Watched::on_copy = [&] {
            inside.set_value();
            go_on.get_future().wait();
        };
        auto emission = std::async(std::launch::async, [this] {
            EXPECT_TRUE(sender.emit_signal("p", "changed", Q_ARG(Watched, Watched())));
        });
        inside.get_future().wait();
        auto waiting = std::async(std::launch::async, operation.run);
        EXPECT_EQ(operation.waits ? std::future_status::timeout : std::future_status::ready,
                  waiting.wait_for(operation.waits ? milliseconds(20) : milliseconds(60000)));
        go_on.set_value();
        waiting.get();
        emission.get();
        Watched::on_copy = nullptr;
    }
    EXPECT_EQ(8U + 1U, delivered().size());
}

namespace {

constexpr int EMITTERS = 4;

/// Emits from four threads, as often in each, and runs a fifth beside them.
class Emitters {
public:
    Emitters(const Sender& sender, int emissions, const std::function<void()>& lock,
             const std::function<void()>& unlock)
    {
        for (int i = 0; i < EMITTERS; ++i)
            threads.emplace_back([&sender, emissions, lock, unlock] {
                for (int j = 0; j < emissions; ++j) {
                    lock();
                    EXPECT_TRUE(sender.emit_signal("p", "changed", Q_ARG(int, j)));
                    unlock();
                }
            });
    }
    void join()
    {
        for (std::thread& thread : threads)
            thread.join();
    }

private:
    std::vector<std::thread> threads;
};

} // namespace

TEST_F(Signal_sender, emits_from_four_threads_while_receivers_are_disconnected_and_die_in_a_fifth)
{
    constexpr int EMISSIONS = 500;
    constexpr int GENERATIONS = 150;
    Receiver witness(calls);
    ASSERT_TRUE(sender.connect("p", "2changed(int)", &witness, "1number(int)"));
    const std::string before = printed(sender);
    std::size_t delivered_to_the_dying = 0;
    const auto nothing = [] {};
    Emitters emitters(sender, EMISSIONS, nothing, nothing);
    std::thread fifth([&] {
        Calls own_calls;
        for (int generation = 0; generation < GENERATIONS; ++generation) {
            auto receiver = std::make_unique<Receiver>(own_calls);
            EXPECT_TRUE(sender.connect("p", "2changed(int)", receiver.get(), "1number(int)"));
            EXPECT_TRUE(sender.connect("p", "2other(int)", receiver.get(), "1number(int)"));
            EXPECT_TRUE(sender.connect("q", "2changed(int)", receiver.get(), "1nothing()"));
            EXPECT_TRUE(sender.emit_signal("q", "changed", Q_ARG(int, 1)));
            QCoreApplication::sendPostedEvents(receiver.get());
            EXPECT_TRUE(sender.disconnect(nullptr, nullptr, receiver.get(), nullptr));
            EXPECT_FALSE(sender.empty());
            receiver.reset();
        }
        delivered_to_the_dying = own_calls.size();
    });
    emitters.join();
    fifth.join();
    EXPECT_LE(static_cast<std::size_t>(GENERATIONS), delivered_to_the_dying);
    EXPECT_EQ(before, printed(sender));
    EXPECT_EQ(static_cast<std::size_t>(EMITTERS * EMISSIONS), delivered().size());
}

TEST_F(Signal_sender, emits_from_four_threads_while_connected_receivers_die_in_a_fifth)
{
    constexpr int EMISSIONS = 500;
    constexpr int GENERATIONS = 150;
    Receiver witness(calls);
    ASSERT_TRUE(sender.connect("p", "2changed(int)", &witness, "1number(int)"));
    const std::string before = printed(sender);
    // A receiver may not die under an emission; the turn keeps emitters from shutting out the fifth for good.
    std::mutex turn;
    std::shared_mutex dying;
    Emitters emitters(
        sender, EMISSIONS,
        [&] {
            const std::lock_guard<std::mutex> lock(turn);
            dying.lock_shared();
        },
        [&] { dying.unlock_shared(); });
    std::thread fifth([&] {
        Calls own_calls;
        for (int generation = 0; generation < GENERATIONS; ++generation) {
            auto receiver = std::make_unique<Receiver>(own_calls);
            EXPECT_TRUE(sender.connect("p", "2changed(int)", receiver.get(), "1number(int)"));
            EXPECT_TRUE(sender.connect("p", "2changed(int)", receiver.get(), "1nothing()"));
            const std::lock_guard<std::mutex> lock(turn);
            const std::lock_guard<std::shared_mutex> alone(dying);
            receiver.reset();
        }
    });
    emitters.join();
    fifth.join();
    emit_number(0);
    EXPECT_EQ(before, printed(sender));
    EXPECT_EQ(static_cast<std::size_t>(EMITTERS * EMISSIONS + 1), delivered().size());
}

// ---- against a model

namespace {

/// What random operations are made of: each text beside what it comes to.
struct Spelled {
    const char* spelling;
    const char* normalised;
    const char* types; // of the arguments: i for int, s for QString
};
const std::vector<Spelled> SIGNALS = {{"2changed()", "changed()", ""},
                                      {"?changed( void )", "changed()", ""},
                                      {"2changed(int)", "changed(int)", "i"},
                                      {"2 changed ( const int & )", "changed(int)", "i"},
                                      {"2changed(int,int)", "changed(int,int)", "ii"},
                                      {"2changed(int,QString)", "changed(int,QString)", "is"},
                                      {"1changed( int , const QString& )", "changed(int,QString)", "is"},
                                      {"2changed(QString)", "changed(QString)", "s"},
                                      {"2other(int)", "other(int)", "i"}};
const std::vector<Spelled> SLOTS = {{"1nothing()", "nothing()", ""},
                                    {"1 nothing( )", "nothing()", ""},
                                    {"1shadowed()", "shadowed()", ""},
                                    {"1number(int)", "number(int)", "i"},
                                    {"1number(const int&)", "number(int)", "i"},
                                    {"1answer(int)", "answer(int)", "i"},
                                    {"1numbers(int, int)", "numbers(int,int)", "ii"},
                                    {"1both(int,const QString&)", "both(int,QString)", "is"},
                                    {"1text(QString)", "text(QString)", "s"},
                                    {"1text( const QString & )", "text(QString)", "s"}};
const std::vector<const char*> NO_SLOTS = {"1missing()", "1number()", "number(int)", "2number(int)", "1", ""};
const std::vector<const char*> PREFIXES = {nullptr, "", "a", "b", "\xC3\xA9"};

bool starts_with(const std::string& text, const std::string& start)
{
    return text.compare(0, start.size(), start) == 0;
}

/// A sender in plain lists of plain texts.
class Model {
public:
    struct Target {
        int receiver;
        std::string slot;
    };
    using Alive = std::function<bool(int)>;
    explicit Model(Alive is_alive) : alive(std::move(is_alive)) {}

    void connect(const std::string& prefix, const std::string& signal, const Target& target)
    {
        has_data = true;
        auto& targets = lists[prefix][signal];
        drop(targets, [this](const Target& each) { return !alive(each.receiver); });
        targets.push_back(target);
    }
    int connected(const std::string& prefix, const std::string& signal) const
    {
        const auto found = lists.find(prefix);
        return found != lists.end() && found->second.count(signal) > 0 ? 1 : 0;
    }
    bool empty() const { return lists.empty(); }

    /// The targets in the order of delivery, or none when there is no such prefix.
    std::optional<std::vector<Target>> emit_signal(const std::string& prefix, const std::string& signal)
    {
        if (lists.count(prefix) == 0)
            return std::nullopt;
        std::vector<Target>& targets = lists[prefix][signal];
        drop(targets, [this](const Target& each) { return !alive(each.receiver); });
        std::vector<Target> called = targets;
        prune();
        return called;
    }

    /// Null stands for any; a slot of "" for one that the receiver does not have.
    bool disconnect(const std::string* prefix, const std::string* signal, const int* receiver,
                    const std::string* slot)
    {
        bool removed = false;
        for (auto& [each_prefix, signals_of_it] : lists)
            for (auto& [each_signal, targets] : signals_of_it) {
                if ((prefix != nullptr && *prefix != each_prefix) ||
                    (signal != nullptr && *signal != each_signal) ||
                    (receiver != nullptr && slot != nullptr && slot->empty()))
                    continue;
                drop(targets, [&](const Target& each) {
                    const bool out = alive(each.receiver) &&
                                     (receiver == nullptr || *receiver == each.receiver) &&
                                     (slot == nullptr || *slot == each.slot);
                    removed = removed || out;
                    return out || !alive(each.receiver);
                });
            }
        prune();
        has_data = has_data && !lists.empty();
        return removed;
    }
    std::string print() const
    {
        if (!has_data)
            return "Signal sender NULL\n";
        std::string text = "Signal sender:\n";
        for (const auto& [prefix, signals_of_it] : lists) {
            text += "    P:" + prefix + "\n";
            for (const auto& [signal, targets] : signals_of_it) {
                text += "        Sig:" + signal + "\n";
                for (const Target& target : targets)
                    text +=
                        "            Slot:" + (alive(target.receiver) ? target.slot : std::string()) + "\n";
            }
        }
        return text;
    }

private:
    template <typename OUT>
    static void drop(std::vector<Target>& targets, OUT out)
    {
        for (std::size_t i = targets.size(); i > 0; --i)
            if (out(targets[i - 1]))
                targets.erase(targets.begin() + static_cast<std::ptrdiff_t>(i - 1));
    }
    void prune()
    {
        for (auto prefix = lists.begin(); prefix != lists.end();) {
            for (auto signal = prefix->second.begin(); signal != prefix->second.end();)
                signal = signal->second.empty() ? prefix->second.erase(signal) : std::next(signal);
            prefix = prefix->second.empty() ? lists.erase(prefix) : std::next(prefix);
        }
    }

    Alive alive;
    bool has_data = false;
    std::map<std::string, std::map<std::string, std::vector<Target>>> lists;
};

/// Takes a sender and a model through the same random operations, from and to one or several threads.
class Comparison {
public:
    Comparison(unsigned seed, std::size_t threads)
        : random(seed), model([this](int id) { return is_alive(id); }), homes(threads + 1)
    {
        for (std::size_t i = 1; i < homes.size(); ++i)
            homes[i].thread = std::make_unique<Event_thread>();
        for (Living& each : receivers)
            make(each);
    }
    ~Comparison()
    {
        for (Living& each : receivers)
            destroy(each);
    }
    Comparison(const Comparison&) = delete;
    Comparison& operator=(const Comparison&) = delete;

    /// One random operation, and whatever can be seen of the sender after it.
    void step()
    {
        const std::size_t choice = below(100);
        if (choice < 40)
            connect();
        else if (choice < 75)
            emit_signal();
        else if (choice < 82)
            disconnect();
        else if (choice < 88)
            ask();
        else if (choice < 93)
            replace(receivers[below(receivers.size())]);
        else
            compare_deliveries();
        EXPECT_EQ(model.print(), printed(sender));
        EXPECT_EQ(model.empty(), sender.empty());
    }

    void compare_deliveries()
    {
        for (Home& home : homes) {
            drain(home);
            std::vector<std::string> expected;
            for (const auto& [id, call] : std::exchange(home.expected, {}))
                expected.push_back(std::to_string(id) + " " + call);
            EXPECT_EQ(expected, home.calls.take());
            deliveries += expected.size();
        }
    }
    std::size_t deliveries = 0;

private:
    /// A thread with an event loop: the testing one where there is no other.
    struct Home {
        std::unique_ptr<Event_thread> thread;
        Calls calls;
        std::vector<std::pair<int, std::string>> expected;
    };
    struct Living {
        int id = 0;
        Home* home = nullptr;
        std::unique_ptr<Receiver> object;
    };

    std::size_t below(std::size_t limit) { return random() % limit; }
    template <typename VALUE>
    const VALUE& any(const std::vector<VALUE>& values)
    {
        return values[below(values.size())];
    }
    bool is_alive(int id) const
    {
        return std::any_of(receivers.begin(), receivers.end(),
                           [id](const Living& each) { return each.id == id && each.object != nullptr; });
    }

    /// Operations come from any of the threads.
    template <typename FUNCTION>
    void run_anywhere(FUNCTION function)
    {
        const Home& home = homes[below(homes.size())];
        if (home.thread != nullptr)
            home.thread->run(function);
        else
            Application::post(function);
    }
    static void drain(Home& home)
    {
        if (home.thread != nullptr)
            home.thread->drain();
        else
            Application::run_event_loop();
    }

    void make(Living& each)
    {
        each.id = ++last_id;
        each.home = &homes[below(homes.size())];
        each.object = std::make_unique<Receiver>(each.home->calls, each.id);
        if (each.home->thread != nullptr)
            each.object->moveToThread(each.home->thread->get());
    }
    static void destroy(Living& each)
    {
        if (each.home->thread == nullptr) {
            // What waits for a receiver goes with it.
            auto& waiting = each.home->expected;
            waiting.erase(std::remove_if(waiting.begin(), waiting.end(),
                                         [&each](const auto& call) { return call.first == each.id; }),
                          waiting.end());
            each.object.reset();
        } else {
            each.home->thread->drain();
            each.home->thread->run([&each] { each.object.reset(); });
        }
    }
    void replace(Living& each)
    {
        destroy(each);
        if (below(2) == 0) {
            EXPECT_EQ(model.print(), printed(sender)); // with none in its place
        }
        make(each);
    }

    static const char* prefix_text(const char* prefix) { return prefix == nullptr ? "" : prefix; }

    void connect()
    {
        const char* const prefix = any(PREFIXES);
        const Spelled& signal = any(SIGNALS);
        const Living& receiver = receivers[below(receivers.size())];
        bool result = true;
        if (below(10) == 0) {
            const char* const slot = any(NO_SLOTS);
            run_anywhere(
                [&] { result = sender.connect(prefix, signal.spelling, receiver.object.get(), slot); });
            EXPECT_FALSE(result);
            return;
        }
        const Spelled& slot = any(SLOTS);
        // Others would take one type for another.
        if (!starts_with(signal.types, slot.types) && !starts_with(slot.types, signal.types))
            return;
        run_anywhere(
            [&] { result = sender.connect(prefix, signal.spelling, receiver.object.get(), slot.spelling); });
        EXPECT_TRUE(result);
        model.connect(prefix_text(prefix), signal.normalised, {receiver.id, slot.normalised});
    }

    void emit_signal()
    {
        const char* const prefix = any(PREFIXES);
        const Spelled& signal = any(SIGNALS);
        const std::string signature = signal.normalised;
        const std::string name = signature.substr(0, signature.find('('));
        const int number = static_cast<int>(below(1000));
        const int second = static_cast<int>(below(1000));
        const QString text = QString::number(below(1000), 16);
        const std::string types = signal.types;
        QGenericArgument arguments[2];
        for (std::size_t i = 0; i < types.size(); ++i)
            arguments[i] = types[i] == 's' ? QGenericArgument("QString", &text)
                                           : QGenericArgument("int", i == 0 ? &number : &second);
        bool result = false;
        run_anywhere([&] { result = sender.emit_signal(prefix, name.c_str(), arguments[0], arguments[1]); });

        const auto called = model.emit_signal(prefix_text(prefix), signature);
        EXPECT_EQ(called.has_value(), result);
        for (const Model::Target& target : called.value_or(std::vector<Model::Target>())) {
            const auto slot = std::find_if(SLOTS.begin(), SLOTS.end(), [&target](const Spelled& each) {
                return target.slot == each.normalised;
            });
            if (!starts_with(types, slot->types))
                continue; // it takes more than there is
            std::string call = target.slot.substr(0, target.slot.find('(') + 1);
            const std::string wanted = slot->types;
            for (std::size_t i = 0; i < wanted.size(); ++i)
                call += (i == 0 ? "" : ",") +
                        (wanted[i] == 's' ? text.toStdString() : std::to_string(i == 0 ? number : second));
            call = target.slot == "shadowed()" ? "Base::shadowed()" : call + ")";
            const auto receiver =
                std::find_if(receivers.begin(), receivers.end(),
                             [&target](const Living& each) { return each.id == target.receiver; });
            receiver->home->expected.emplace_back(target.receiver, call);
        }
    }

    void disconnect()
    {
        const char* const prefix = any(PREFIXES); // null: any
        const Spelled& signal = any(SIGNALS);
        const std::size_t any_signal = below(4);
        const char* const signal_text = any_signal == 0 ? nullptr : any_signal == 1 ? "" : signal.spelling;
        const Living* const receiver = below(2) == 0 ? nullptr : &receivers[below(receivers.size())];
        const Spelled& slot = any(SLOTS);
        const std::size_t slot_kind = below(8);
        const char* const slot_text = slot_kind < 3    ? nullptr
                                      : slot_kind == 3 ? any(NO_SLOTS)
                                                       : slot.spelling;
        if (prefix == nullptr && any_signal < 2 && receiver == nullptr && slot_text == nullptr &&
            below(4) != 0)
            return; // not too often everything
        if (receiver == nullptr && slot_kind == 3)
            return; // a slot of any receiver is taken at its word

        bool result = false;
        run_anywhere([&] {
            result = sender.disconnect(prefix, signal_text,
                                       receiver == nullptr ? nullptr : receiver->object.get(), slot_text);
        });
        const std::string prefix_key = prefix_text(prefix);
        const std::string signal_key = signal.normalised;
        const std::string slot_key = slot_kind == 3 ? "" : slot.normalised;
        EXPECT_EQ(model.disconnect(prefix == nullptr ? nullptr : &prefix_key,
                                   any_signal < 2 ? nullptr : &signal_key,
                                   receiver == nullptr ? nullptr : &receiver->id,
                                   slot_text == nullptr ? nullptr : &slot_key),
                  result);
    }

    void ask()
    {
        const char* const prefix = any(PREFIXES);
        const Spelled& signal = any(SIGNALS);
        int result = -1;
        run_anywhere([&] { result = sender.connected(prefix, signal.spelling); });
        EXPECT_EQ(model.connected(prefix_text(prefix), signal.normalised), result);
    }

    std::mt19937 random;
    Sender sender;
    Model model;
    std::vector<Home> homes;
    int last_id = 0;
    std::array<Living, 6> receivers;
};

/// @return how many calls were delivered
std::size_t compare(unsigned seed, std::size_t threads, int steps)
{
    const Qt_output silenced;
    Comparison comparison(seed, threads);
    for (int step = 0; step < steps; ++step) {
        SCOPED_TRACE(testing::Message() << "seed " << seed << ", step " << step);
        comparison.step();
        if (testing::Test::HasFailure())
            return 0;
    }
    comparison.compare_deliveries();
    return comparison.deliveries;
}

} // namespace

TEST_F(Signal_sender, does_as_a_plain_model_does)
{
    std::size_t deliveries = 0;
    for (unsigned seed = 1; seed <= 20 && !HasFailure(); ++seed)
        deliveries += compare(seed, 0, 1000);
    EXPECT_LE(5000U, deliveries);
}

TEST_F(Signal_sender, does_as_a_plain_model_does_from_and_to_three_threads)
{
    std::size_t deliveries = 0;
    for (unsigned seed = 1; seed <= 6 && !HasFailure(); ++seed)
        deliveries += compare(seed, 2, 500);
    EXPECT_LE(500U, deliveries);
}

#ifndef __clang__                               // which knows no such warning
#pragma GCC diagnostic ignored "-Wuseless-cast" // what moc writes is not ours to mend
#endif
#include "Signal_sender_test.moc"
