#pragma once

#include "util/export.h"

#include <QObject>
#include <QString>

#include <memory>

namespace Util {

class Signal_sender_private;

/// Named events for code that is no QObject: signals made up at run time, delivered to slots of any QObject.
///
/// Connections are grouped under a prefix, a name of the caller's choice (a channel, an owner). Null and ""
/// are the same prefix but in disconnect(), where null stands for every one. A signal or slot is what Qt's
/// SIGNAL() and SLOT() write: a code character and the signature, spaced and qualified in any way that
/// Qt normalises. Any signature will do for a signal: none is declared anywhere.
///
///     sender.connect("display", SIGNAL(changed(int)), &panel, SLOT(on_changed(int)));
///     sender.emit_signal("display", "changed", Q_ARG(int, 5));
///
/// A slot always runs later, from the event loop of its receiver's thread, even if that is the emitting one.
///
/// Any thread, every operation: one lock, of all senders of the process, is held from its first step to its
/// last. Slots run without it and may call any sender. What runs inside an operation must not: the copying
/// of an argument, a handler of Qt's messages.
///
/// A receiver needs no disconnecting before it is destroyed: what is left of it is dropped later. But this is
/// so only while no other thread is inside emit_signal(), disconnect() or print() of a sender that it is
/// connected to. Where one may be, disconnect it first (from every such sender): after that none reaches it.
class QUARVEL_EXPORT Signal_sender {
public:
    Signal_sender();

    /// Drops all connections; receivers are not told. What was emitted is still delivered.
    ~Signal_sender();

    Signal_sender(const Signal_sender&) = delete;
    Signal_sender& operator=(const Signal_sender&) = delete;

    /// Start over without a connection, and let go of everything. They take no lock: they are steps of the
    /// other operations, which hold it, or of a program with no second thread near any sender.
    /// @{
    void _init();
    void _deinit();
    /// @}

    /// True when no prefix has a connection. One whose receivers are all gone counts until it is dropped.
    bool empty() const;

    /// From now on emitting the signal calls the slot. A second call of the same kind makes it two calls.
    /// Whether the slot takes what the signal carries is not checked here: see emit_signal().
    ///
    /// @param[in] signal    not null (asserted); its code character may be any
    /// @param[in] receiver  may be null, which fails
    /// @param[in] slot      any slot, signal or invokable method of the receiver, its code character "1" in
    ///                      each case; may be null, which fails. Of two methods with one signature, the one
    ///                      of the base class.
    /// @return false, with a line of debug output and nothing changed, when the receiver has no such slot
    bool connect(const char* prefix, const char* signal, const QObject* receiver, const char* slot);

    /// @param[in] signal  with its code character
    /// @return 1 when the signal has connections under this prefix, else 0. Not their number: connections to
    ///         receivers that are gone count until connect(), emit_signal() or disconnect() comes upon them.
    int connected(const char* prefix, const char* signal);

    /// Removes the connections that fit all four arguments, and among those looked at all to receivers that
    /// are gone.
    ///
    /// @param[in] prefix    null: every prefix
    /// @param[in] signal    with its code character; null or "": every signal
    /// @param[in] receiver  null: every receiver
    /// @param[in] slot      null: every slot; "": every slot while receiver is null, else none. Without a
    ///                      receiver its code character may be any.
    /// @return true when a connection to a living receiver was removed. False with nothing removed when the
    ///         receiver has no such slot.
    bool disconnect(const char* prefix, const char* signal, const QObject* receiver, const char* slot);

    /// Queues a call of each slot connected to the signal, in the order of connection, with copies of the
    /// arguments: their data need not outlive the call. Drops receivers that are gone.
    ///
    /// A slot may take fewer arguments than it is sent. One that takes more is not called, nor is any when a
    /// type is unknown to Qt's meta-type system (which says so); the connection stays. Types that differ from
    /// the slot's are passed unconverted, as if they were the slot's own: that is the caller's to avoid.
    ///
    /// @param[in] signal_name  the name alone: no code character, no parentheses
    /// @param[in] val0         Q_ARG(type, value), up to the first one left out. The type is compared letter
    ///                         by letter with the normalised signature of the connection: QString, not
    ///                         const QString&.
    /// @return true when the prefix has connections, of this or of another signal, whether or not a slot will
    ///         be called
    bool emit_signal(const char* prefix, const char* signal_name, QGenericArgument val0 = QGenericArgument(),
                     QGenericArgument val1 = QGenericArgument(), QGenericArgument val2 = QGenericArgument(),
                     QGenericArgument val3 = QGenericArgument(), QGenericArgument val4 = QGenericArgument(),
                     QGenericArgument val5 = QGenericArgument(), QGenericArgument val6 = QGenericArgument(),
                     QGenericArgument val7 = QGenericArgument(), QGenericArgument val8 = QGenericArgument(),
                     QGenericArgument val9 = QGenericArgument()) const;

    /// All connections, one a line, under their signals and prefixes; prefixes and signals in the order of
    /// their bytes. The slot of a receiver that is gone is empty. For developers.
    QString print() const;

private:
    std::unique_ptr<Signal_sender_private> data; // null until the first connection, and after the last
};

} // namespace Util
