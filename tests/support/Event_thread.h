#pragma once

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEvent>
#include <QEventLoop>
#include <QThread>
#include <QTimer>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

/// Makes what goes through Qt's event queues visible to the thread sanitizer.
///
/// Qt is not built for the sanitizer, which misses the locks of its queues. There, what posts to a running
/// thread and what is delivered from a queue hold one standard lock. Elsewhere nothing is held.
class Hand_over {
public:
#ifdef __SANITIZE_THREAD__
    Hand_over() : lock(mutex)
    {
    }

private:
    static inline std::recursive_mutex mutex; // what is delivered may run an event loop of its own
    const std::lock_guard<std::recursive_mutex> lock;
#else
    Hand_over()
    {
    } // NOLINT(modernize-use-equals-default): a variable of this type is a used one
#endif
};

/// An application on the testing thread for as long as the object lives.
class Application {
public:
    Application() : app(argument_count, arguments) {}
    ~Application() { run_event_loop(); }
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;

    /// Runs the calling thread's event loop until what is posted by now is done, deferred deletions included.
    static void run_event_loop()
    {
        QEventLoop loop;
        QTimer::singleShot(0, &loop, &QEventLoop::quit);
        loop.exec();
    }

    /// Runs the calling thread's event loop until the condition holds.
    ///
    /// @return false when it still did not hold after a minute
    template <typename CONDITION>
    static bool run_event_loop_until(CONDITION condition)
    {
        QElapsedTimer timer;
        timer.start();
        while (!condition() && !timer.hasExpired(60000))
            QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        return condition();
    }

    /// Calls a function that posts to a thread which may deliver at once.
    template <typename FUNCTION>
    static void post(FUNCTION function)
    {
        const Hand_over hand_over;
        function();
    }

private:
    class Delivering_application : public QCoreApplication {
    public:
        using QCoreApplication::QCoreApplication;

        /// Every event of every thread comes by here.
        bool notify(QObject* receiver, QEvent* event) override
        {
            const Hand_over hand_over;
            return QCoreApplication::notify(receiver, event);
        }
    };

    int argument_count = 1;
    char name[5] = "test";
    char* arguments[2] = {name, nullptr};
    Delivering_application app;
};

/// A thread that runs an event loop until the object is destroyed. It needs an Application.
///
/// Started, joined and waited for by the standard library, not by Qt: the thread sanitizer sees what that
/// orders.
class Event_thread {
public:
    Event_thread()
    {
        std::unique_lock<std::mutex> lock(mutex);
        thread = std::thread([this] { run_event_loop(); });
        changed.wait(lock, [this] { return context != nullptr; });
    }
    ~Event_thread()
    {
        run([this] { loop->quit(); });
        thread.join();
    }
    Event_thread(const Event_thread&) = delete;
    Event_thread& operator=(const Event_thread&) = delete;

    QThread* get() { return qt_thread; }

    /// Runs the function on the thread, from its event loop, and waits until it is done.
    void run(const std::function<void()>& function)
    {
        std::unique_lock<std::mutex> lock(mutex);
        task = &function;
        QCoreApplication::postEvent(context, new QEvent(QEvent::User));
        changed.wait(lock, [this] { return task == nullptr; });
    }

    /// Waits until the thread has done what was posted to it by now, deferred deletions included.
    void drain() { run(&Application::run_event_loop); }

private:
    /// Where the thread's event loop takes up a task.
    class Context : public QObject {
    public:
        explicit Context(Event_thread& thread) : owner(thread) {}
        bool event(QEvent* event) override
        {
            if (event->type() != QEvent::User)
                return QObject::event(event);
            owner.run_task();
            return true;
        }

    private:
        Event_thread& owner;
    };

    void run_event_loop()
    {
        Context here(*this);
        QEventLoop event_loop;
        {
            const std::lock_guard<std::mutex> lock(mutex);
            qt_thread = QThread::currentThread();
            loop = &event_loop;
            context = &here;
        }
        changed.notify_all();
        event_loop.exec();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    void run_task()
    {
        const std::function<void()>* function = nullptr;
        {
            const std::lock_guard<std::mutex> lock(mutex);
            function = task;
        }
        (*function)();
        const std::lock_guard<std::mutex> lock(mutex);
        task = nullptr;
        changed.notify_all();
    }

    std::mutex mutex;
    std::condition_variable changed;
    const std::function<void()>* task = nullptr; // one at a time: run() waits
    Context* context = nullptr;
    QEventLoop* loop = nullptr;
    QThread* qt_thread = nullptr;
    std::thread thread;
};
