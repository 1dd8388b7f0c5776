#pragma once

#include "util/export.h"

#include <QObject>
#include <QSet>
#include <QString>

class QWidget;

/// Finds widgets that outlive the window or dialog that they were made for: a tenth of a second after the
/// watched object is destroyed it prints the widgets of the application that were not there when the tracker
/// was built, as a tree, and deletes itself.
///
///     Widget track 94021845768768 Settings_dialog total=2 objs={
///     QFrame:94021845790112:Main_window
///         QLabel:94021845791040:QFrame
///     }
///
/// First the watched object's address and class, then a line for each widget: its class, its address and the
/// class of its parent. Addresses are decimal; on 32-bit machines those from 2^31 on are extended by their
/// sign to 64 bits, so they have 20 digits. It all goes to standard output, in the local 8-bit encoding.
///
/// Widgets are told apart by their addresses alone:
/// a new one in the place of one that went is taken for that.
///
/// Built with new and forgotten: it has no parent, and stays for ever, silent, if the watched object does. It
/// leaves a timer behind, which runs on without effect. For the GUI thread, after the QApplication is built.
class QUARVEL_EXPORT QWidget_global_instance_tracker : public QObject {
    Q_OBJECT

public:
    /// Takes the snapshot of the widgets that are there.
    ///
    /// @param object  the one to watch, not null; not owned. Its class is taken now: of one whose constructor
    ///                is not done, that is what it is by then.
    explicit QWidget_global_instance_tracker(QObject* object);

    /// Takes the snapshot anew: what is there now is never reported.
    void reset();

    /// The report of the given widgets, all of which exist.
    QString to_string(const QSet<QWidget*>& widgets);

    /// Prints the report of the given widgets.
    void print(const QSet<QWidget*>& widgets);

    /// Prints the report of the widgets made since the snapshot.
    void print_diff();

    /// Prints what is new, and leaves itself to the event loop to delete.
    Q_SLOT void do_print_and_delete();

    /// Prints and deletes itself after 100 ms, in which widgets disappear that are to be deleted later.
    Q_SLOT void do_wait_before_print_and_delete();

private:
    QSet<QWidget*> baseline;
    QObject* watched;
    QString watched_class;
};

/// Appends the lines of a widget and of what is below it, as far as they are in the set,
/// and takes them out of the set.
///
/// A widget whose parent is in the set as well is found under it: the lines are those of the topmost of such
/// parents. What is not in the set has no line, but what is below it keeps its depth.
///
/// @param widget   null: every widget of the set, in no promised order of those without a parent in it
/// @param depth    how far the widget's line is indented, by four spaces each; 0 is taken instead where the
///                 lines start from another widget
/// @param widgets  widgets that exist, none of them null
QUARVEL_EXPORT void print_tree(QWidget* widget, QString& out, int depth, QSet<QWidget*>& widgets);
