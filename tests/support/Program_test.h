#pragma once

#include "tests/support/Child_process.h"
#include "tests/support/Temporary_folder.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QStringList>
#include <QTemporaryDir>

#include <string>
#include <utility>
#include <vector>

/// Runs a program of Qt's in a folder of its own, under the emulator where there is one.
class Program_test : public testing::Test {
protected:
    /// @param emulator  words parted by "|", or empty
    /// @param libraries  of others, that the leak checker is to pass over
    Program_test(std::string emulator, std::string program, const std::vector<std::string>& libraries)
        : command_emulator(std::move(emulator)), command_program(std::move(program))
    {
        std::string leaks;
        for (const std::string& library : libraries)
            leaks += "leak:" + library + "\n";
        surroundings.folder = folder.path().toStdString();
        surroundings.variables["LSAN_OPTIONS"] =
            "suppressions=" + outside.file("leaks", leaks) + ":print_suppressions=0";
    }

    Child_process start(const QStringList& arguments) const
    {
        std::vector<std::string> words;
        for (const QString& argument : arguments)
            words.push_back(argument.toStdString());
        return {command_emulator, command_program, words, surroundings};
    }

    Outcome run(const QStringList& arguments) const { return start(arguments).finish(); }

    QString path(const QString& name) const { return QDir(folder.path()).filePath(name); }

    QByteArray content(const QString& name) const
    {
        QFile file(path(name));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    /// A file in the folder, or anywhere with a whole path.
    QString write(const QString& name, const QByteArray& bytes) const
    {
        QFile file(path(name));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
        return path(name);
    }

    QTemporaryDir folder;
    Temporary_folder outside; ///< of it
    Surroundings surroundings;

private:
    std::string command_emulator;
    std::string command_program;
};
