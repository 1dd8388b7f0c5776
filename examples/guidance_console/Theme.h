#pragma once

#include <QColor>
#include <QFont>
#include <QRectF>

class QPainter;

/// The colours of the whole screen, for sunlight or for the dark.
struct Theme {
    bool night;
    QColor window;   ///< between the panels
    QColor panel;    ///< what lies on it
    QColor raised;   ///< what can be pressed
    QColor edge;     ///< around and between
    QColor ink;      ///< what is to be read
    QColor faint;    ///< what explains it
    QColor accent;   ///< the vehicle, a curve
    QColor second;   ///< beside the accent
    QColor good;     ///< on the line, engaged, in order
    QColor caution;  ///< near it
    QColor bad;      ///< off it, stopped, broken
    QColor warning;  ///< words of caution
    QColor lamp_off; ///< of the light bar
    QColor map;      ///< the field's ground
    QColor grid;
    QColor swath;   ///< the parallels
    QColor covered; ///< worked ground, over it
    QColor line;    ///< A to B
    // Large areas. At night they are darker than lamps, words and curves of the same meaning: they would dazzle.
    QColor fill_accent; ///< what is chosen
    QColor fill_good;   ///< steering, start
    QColor fill_bad;    ///< stop, the alarm
    QColor on_fill;     ///< text on these

    static const Theme& bright();
    static const Theme& dark();
};

/// The one in force. The GUI thread's.
const Theme& theme();
void use_theme(bool night);

/// Makes a panel's corners round: paints what lies around it over them.
void round_corners(QPainter& painter, const QRectF& panel);

/// The screen's font.
QFont ui_font(int pixels, bool bold = false);
