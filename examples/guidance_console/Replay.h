#pragma once

#include "Source.h"
#include "examples/common/Recording.h"

/// A recorded drive, at the speed that it had or a multiple of it.
class Replay : public Paced_source {
    Q_OBJECT

public:
    /// @throw std::runtime_error  as read_recording()
    Replay(const QString& path, double speed);

    QString kind() const override { return "REPLAY"; }
    QString detail() const override;
    bool can_steer() const override { return false; }
    std::optional<double> interval_s() const override { return recording.interval_s(); }
    std::optional<Line_ends> own_line(std::string& reason) override;

protected:
    std::optional<double> next_s() const override;
    void deliver() override;

private:
    void read_sentences(const QString& path);

    struct Sentence {
        std::size_t fix; ///< the number of the fix that it came before
        QByteArray bytes;
    };

    QString name;
    Recording recording;
    std::vector<Sentence> sentences; ///< that tell more than a position, in the order of the file
    std::size_t next_fix = 0;
    std::size_t next_sentence = 0;
};
