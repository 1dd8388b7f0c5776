#pragma once

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QThread>
#include <QTimer>

#include <condition_variable>
#include <mutex>

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

private:
    int argument_count = 1;
    char name[5] = "test";
    char* arguments[2] = {name, nullptr};
    QCoreApplication app;
};

/// A thread that runs an event loop until the object is destroyed.
class Event_thread {
public:
    Event_thread()
    {
        context.moveToThread(&thread);
        thread.start();
    }
    ~Event_thread()
    {
        thread.quit();
        thread.wait();
    }
    Event_thread(const Event_thread&) = delete;
    Event_thread& operator=(const Event_thread&) = delete;

    QThread* get() { return &thread; }

    /// Runs the function on the thread, from its event loop, and waits until it is done.
    ///
    /// The standard library's lock, not Qt's own way of waiting: the thread sanitizer sees what it orders.
    template <typename FUNCTION>
    void run(FUNCTION function)
    {
        std::mutex mutex;
        std::condition_variable finished;
        bool done = false;
        QMetaObject::invokeMethod(
            &context,
            [&] {
                function();
                const std::lock_guard<std::mutex> lock(mutex);
                done = true;
                finished.notify_one();
            },
            Qt::QueuedConnection);
        std::unique_lock<std::mutex> lock(mutex);
        finished.wait(lock, [&done] { return done; });
    }

    /// Waits until the thread has done what was posted to it by now, deferred deletions included.
    void drain() { run(&Application::run_event_loop); }

private:
    QThread thread;
    QObject context; // destroyed once the thread has finished
};
