#pragma once

#include <QAbstractButton>

class QPainter;

/// A button for a finger: large, flat, and drawn by itself. Its shortcut stands small in a corner and in the
/// tooltip.
class Touch_button : public QAbstractButton {
    Q_OBJECT

public:
    enum class Glyph {
        none,
        plus,
        minus,
        left,
        right,
        follow,
        north,
        trends,
        sky,
        tune,
        log,
        moon,
        end,
        out
    };
    enum class Role { plain, go, stop };

    explicit Touch_button(const QString& text, Glyph drawn = Glyph::none);

    /// @param keys  that press the button, wherever the window's eyes are: see Window
    void set_keys(const QString& keys, const QString& tip);
    const QString& keys() const { return shortcut_text; }

    void set_role(Role changed);

    /// A quiet button lies on a map or in a strip and has no shortcut corner.
    void set_quiet(bool changed);

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void draw_glyph(QPainter& painter, const QRectF& box) const;

    Glyph glyph;
    Role role = Role::plain;
    bool quiet = false;
    QString shortcut_text;
};
