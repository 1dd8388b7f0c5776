#include "util/qt/Signal_sender.h"

#include <cassert>

#include <QByteArray>
#include <QDebug>
#include <QMetaMethod>
#include <QMutex>
#include <QMutexLocker>
#include <QPointer>
#include <QVarLengthArray>

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <map>
#include <string_view>
#include <utility>
#include <vector>

namespace Util {

class Signal_sender_private {
public:
    /// One slot of one receiver.
    class Target {
    public:
        Target() = default;
        Target(const QObject* object, const char* slot);

        bool valid() const { return !receiver.isNull() && method >= 0; }

        /// Normalised; empty when there is no slot, or no receiver any more.
        QByteArray signature() const;

        QPointer<const QObject> receiver;
        int method = -1;
    };

    /// The order of QByteArray, and a way to look up a text without making one.
    struct Bytewise {
        using is_transparent = void;
        template <typename LEFT, typename RIGHT>
        bool operator()(const LEFT& left, const RIGHT& right) const
        {
            return bytes(left) < bytes(right);
        }
        static std::string_view bytes(std::string_view text) { return text; }
        static std::string_view bytes(const QByteArray& text)
        {
            return {text.constData(), static_cast<std::size_t>(text.size())};
        }
    };

    using Target_list = std::vector<Target>;                                // in the order of connection
    using Targets_per_prefix = std::map<QByteArray, Target_list, Bytewise>; // by normalised signature

    std::map<QByteArray, Targets_per_prefix, Bytewise> prefixes;

    static QMutex global_mutex;
};

} // namespace Util

namespace {

using Private = Util::Signal_sender_private;
using Target = Private::Target;
using Target_list = Private::Target_list;
using Targets_per_prefix = Private::Targets_per_prefix;

constexpr char SLOT_CODE = '1';

/// What normalising takes out.
bool is_space(char c)
{
    return c == ' ' || c == '\t';
}

QByteArray normalized_signature(const QMetaMethod& method)
{
    return QMetaObject::normalizedSignature(method.methodSignature().constData());
}

const char* after_word(const char* text)
{
    while ((*text >= 'a' && *text <= 'z') || (*text >= 'A' && *text <= 'Z') ||
           (*text >= '0' && *text <= '9') || *text == '_')
        ++text;
    return text;
}

/// True for the usual signature, words between parentheses and commas,
/// unless normalising rewrites one of them.
bool is_normalized(const char* signature)
{
    const char* at = after_word(signature);
    if (*at != '(')
        return false;
    do {
        const char* const type = at + 1;
        at = after_word(type);
        const std::string_view word(type, static_cast<std::size_t>(at - type));
        if (word == "void" || word == "unsigned")
            return false;
    } while (*at == ',');
    return at[0] == ')' && at[1] == 0;
}

QByteArray normalized_without_code(const char* text)
{
    if (text == nullptr || *text == 0)
        return {};
    return is_normalized(text + 1) ? QByteArray(text + 1) : QMetaObject::normalizedSignature(text + 1);
}

/// Whether the method's signature, normalised, is the text, normalised. Most methods are told apart by their
/// names, where normalising does no more than to take out white space, and the right one is mostly written as
/// it is: normalising takes time.
bool has_signature(const QMetaMethod& method, const char* text)
{
    const QByteArray name = method.name();
    const auto [in_name, in_text] = std::mismatch(name.begin(), name.end(), text);
    if (in_name != name.end() ? !is_space(*in_name) && !is_space(*in_text)
                              : *in_text != '(' && !is_space(*in_text))
        return false;
    const QByteArray signature = method.methodSignature();
    return signature == text ||
           QMetaObject::normalizedSignature(signature.constData()) == QMetaObject::normalizedSignature(text);
}

/// The lowest index, so that of two methods with one signature it is the base class's: not what
/// QMetaObject::indexOfMethod() finds.
int first_method(const QMetaObject* meta, const char* text)
{
    // By classes, because a class finds the methods of its bases slowly.
    QVarLengthArray<const QMetaObject*, 16> classes;
    for (; meta != nullptr; meta = meta->superClass())
        classes.append(meta);
    for (auto at = classes.crbegin(); at != classes.crend(); ++at)
        for (int index = (*at)->methodOffset(), end = (*at)->methodCount(); index < end; ++index)
            if (has_signature((*at)->method(index), text))
                return index;
    return -1;
}

std::string_view prefix_key(const char* prefix)
{
    return prefix == nullptr ? std::string_view() : std::string_view(prefix);
}

void drop_gone(Target_list& targets)
{
    const auto is_gone = [](const Target& target) { return target.receiver.isNull(); };
    targets.erase(std::remove_if(targets.begin(), targets.end(), is_gone), targets.end());
}

/// The entry of a key, or all of them.
template <typename MAP>
auto select(MAP& map, bool all, std::string_view key)
{
    return all ? std::make_pair(map.begin(), map.end()) : map.equal_range(key);
}

/// What a disconnect() is to remove from a list.
class Selection {
public:
    Selection(const QObject* receiver_or_null, const char* slot_or_null)
        : receiver(receiver_or_null),
          any_slot(slot_or_null == nullptr || (receiver == nullptr && *slot_or_null == 0))
    {
        if (any_slot)
            return;
        if (receiver == nullptr)
            signature = normalized_without_code(slot_or_null);
        else if (*slot_or_null != 0)
            target = Target(receiver, slot_or_null);
    }

    /// A receiver without the slot: then not even targets that are gone are removed.
    bool is_nothing() const { return receiver != nullptr && !any_slot && !target.valid(); }

    bool contains(const Target& other) const
    {
        if (receiver == nullptr)
            return any_slot || other.signature() == signature;
        return other.receiver == receiver && (any_slot || other.method == target.method);
    }

private:
    const QObject* receiver;
    bool any_slot;
    QByteArray signature; // of the slot, where any receiver will do
    Target target;        // where both are given
};

/// @return whether a selected target was removed; those that are gone are removed uncounted
bool remove(Target_list& targets, const Selection& selection)
{
    bool removed = false;
    const auto is_out = [&selection, &removed](const Target& target) {
        if (target.receiver.isNull())
            return true;
        const bool selected = selection.contains(target);
        removed = removed || selected;
        return selected;
    };
    targets.erase(std::remove_if(targets.begin(), targets.end(), is_out), targets.end());
    return removed;
}

bool remove(Targets_per_prefix& lists, const char* signal, const Selection& selection)
{
    const QByteArray key = normalized_without_code(signal);
    bool removed = false;
    auto [at, end] = select(lists, signal == nullptr || *signal == 0, Private::Bytewise::bytes(key));
    while (at != end) {
        removed = remove(at->second, selection) || removed;
        at = at->second.empty() ? lists.erase(at) : std::next(at);
    }
    return removed;
}

using Signature = QVarLengthArray<char, 256>;

void append(Signature& signature, const char* text)
{
    if (text != nullptr)
        signature.append(text, static_cast<int>(std::strlen(text)));
}

/// Not normalised: the caller's type names are taken as they are.
Signature make_signature(const char* name, std::initializer_list<const char*> types)
{
    Signature signature;
    append(signature, name);
    char separator = '(';
    for (const char* const type : types) {
        if (type == nullptr || *type == 0)
            break;
        signature.append(separator);
        append(signature, type);
        separator = ',';
    }
    if (separator == '(')
        signature.append(separator);
    signature.append(')');
    return signature;
}

} // namespace

QMutex Util::Signal_sender_private::global_mutex;

Util::Signal_sender_private::Target::Target(const QObject* object, const char* slot)
{
    if (object == nullptr || slot == nullptr)
        return;
    if (*slot != SLOT_CODE) {
        qDebug("This is not a slot\n");
        return;
    }
    method = first_method(object->metaObject(), slot + 1);
    if (method >= 0)
        receiver = object;
}

QByteArray Util::Signal_sender_private::Target::signature() const
{
    return valid() ? normalized_signature(receiver->metaObject()->method(method)) : QByteArray();
}

Util::Signal_sender::Signal_sender()
{
    static_assert(sizeof(Signal_sender) == sizeof(void*), "applications hold senders by value");
}

Util::Signal_sender::~Signal_sender()
{
    const QMutexLocker lock(&Private::global_mutex);
    _deinit();
}

void Util::Signal_sender::_init()
{
    data = std::make_unique<Signal_sender_private>();
}

void Util::Signal_sender::_deinit()
{
    data.reset();
}

bool Util::Signal_sender::empty() const
{
    const QMutexLocker lock(&Private::global_mutex);
    return data == nullptr || data->prefixes.empty();
}

bool Util::Signal_sender::connect(const char* prefix, const char* signal, const QObject* receiver,
                                  const char* slot)
{
    Target target(receiver, slot);
    if (!target.valid()) {
        qDebug() << "Signal_sender could not find slot: " << slot << "In"
                 << (receiver == nullptr ? "" : receiver->metaObject()->className());
        return false;
    }
    assert(signal != nullptr);
    const QMutexLocker lock(&Private::global_mutex);
    if (data == nullptr)
        _init();
    auto lists = data->prefixes.find(prefix_key(prefix));
    if (lists == data->prefixes.end())
        lists = data->prefixes.emplace(prefix, Targets_per_prefix()).first;
    Target_list& targets = lists->second[normalized_without_code(signal)];
    drop_gone(targets);
    targets.push_back(std::move(target));
    return true;
}

int Util::Signal_sender::connected(const char* prefix, const char* signal)
{
    const QMutexLocker lock(&Private::global_mutex);
    if (data == nullptr)
        return 0;
    const auto lists = data->prefixes.find(prefix_key(prefix));
    if (lists == data->prefixes.end())
        return 0;
    return static_cast<int>(lists->second.count(normalized_without_code(signal)));
}

bool Util::Signal_sender::disconnect(const char* prefix, const char* signal, const QObject* receiver,
                                     const char* slot)
{
    const QMutexLocker lock(&Private::global_mutex);
    if (data == nullptr)
        return false;
    bool removed = false;
    const Selection selection(receiver, slot);
    if (!selection.is_nothing()) {
        auto [at, end] = select(data->prefixes, prefix == nullptr, prefix_key(prefix));
        while (at != end) {
            removed = remove(at->second, signal, selection) || removed;
            at = at->second.empty() ? data->prefixes.erase(at) : std::next(at);
        }
    }
    if (data->prefixes.empty())
        _deinit();
    return removed;
}

bool Util::Signal_sender::emit_signal(const char* prefix, const char* signal_name, QGenericArgument val0,
                                      QGenericArgument val1, QGenericArgument val2, QGenericArgument val3,
                                      QGenericArgument val4, QGenericArgument val5, QGenericArgument val6,
                                      QGenericArgument val7, QGenericArgument val8,
                                      QGenericArgument val9) const
{
    const QMutexLocker lock(&Private::global_mutex);
    if (data == nullptr)
        return false;
    const auto lists = data->prefixes.find(prefix_key(prefix));
    if (lists == data->prefixes.end())
        return false;
    const Signature signature =
        make_signature(signal_name, {val0.name(), val1.name(), val2.name(), val3.name(), val4.name(),
                                     val5.name(), val6.name(), val7.name(), val8.name(), val9.name()});
    const auto list =
        lists->second.find(std::string_view(signature.data(), static_cast<std::size_t>(signature.size())));
    if (list == lists->second.end())
        return true;

    bool clean_up = false;
    for (const Target& target : list->second) {
        if (target.receiver.isNull()) {
            clean_up = true;
            continue;
        }
        // Delivering changes the receiver, which connections hold as const.
        auto* const receiver = const_cast<QObject*>(target.receiver.data());
        const QMetaMethod slot = receiver->metaObject()->method(target.method);
        if (!slot.invoke(receiver, Qt::QueuedConnection, val0, val1, val2, val3, val4, val5, val6, val7, val8,
                         val9))
            clean_up = true;
    }
    if (clean_up)
        drop_gone(list->second);
    if (list->second.empty())
        lists->second.erase(list);
    if (lists->second.empty())
        data->prefixes.erase(lists);
    return true;
}

QString Util::Signal_sender::print() const
{
    const QMutexLocker lock(&Private::global_mutex);
    if (data == nullptr)
        return "Signal sender NULL\n";
    QString text = "Signal sender:\n";
    for (const auto& [prefix, lists] : data->prefixes) {
        text += QString("    P:%1\n").arg(QString(prefix));
        for (const auto& [signature, targets] : lists) {
            text += QString("        Sig:%1\n").arg(QString(signature));
            for (const Target& target : targets)
                text += QString("            Slot:%1\n").arg(QString(target.signature()));
        }
    }
    return text;
}
