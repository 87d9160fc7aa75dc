// Files of strings, and appending to files.
#include <sys/stat.h>

#include <fstream>
#include <thread>
#include <vector>

#include "Platform.h"
#include "support/Document.h"
#include "support/TestRoot.h"

namespace {

class Strings : public RootTest {
  protected:
    wstr Write(const std::string& text) {
        std::ofstream(m_root.Path() / "strings.txt", std::ios::binary) << text;
        return WidePath(m_root.Path() / "strings.txt");
    }
    // "length:text" of the block's strings; the error where there is none.
    static std::string Block(HMODULE module, unsigned number) {
        const HRSRC block = FindResourceW(module, MAKEINTRESOURCEW(number), RT_STRING);
        if (!block) return std::to_string(GetLastError());
        const auto* units = static_cast<const WCHAR*>(LockResource(LoadResource(module, block)));
        std::size_t left = SizeofResource(module, block) / sizeof(WCHAR);
        std::string all;
        while (left > 0) {
            const std::size_t length = *units++;
            EXPECT_LT(length, left--);
            if (length) all += std::to_string(length) + ":" + std::string(units, units + length) + " ";
            units += length;
            left -= length;
        }
        return all;
    }
};

TEST_F(Strings, BlocksOfSixteen) {
    const wstr path =
        Write("\xEF\xBB\xBF# a comment\r\n\n110 the name\r\n96\tfirst\n111\n110 the name again\n0 zero\n65535 last");
    const HMODULE module = LoadLibraryExW(path.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
    ASSERT_NE(module, nullptr) << GetLastError();
    EXPECT_EQ(Block(module, 7), "5:first 14:the name again ");
    EXPECT_EQ(Block(module, 1), "4:zero ");
    EXPECT_EQ(Block(module, 4096), "4:last ");
    EXPECT_EQ(Block(module, 2), "1815");
    EXPECT_EQ(Block(nullptr, 7), "1813") << "the program has no strings";
    EXPECT_TRUE(FreeLibrary(module));
    EXPECT_FALSE(FreeLibrary(module));
    EXPECT_EQ(Block(module, 7), "1813");
}

TEST_F(Strings, WhatIsNoTable) {
    const std::pair<const char*, DWORD> cases[] = {
        {"no number", 193}, {"12x", 193}, {"70000 too large", 193}, {"-1 a", 193}};
    for (const auto& [text, error] : cases) {
        EXPECT_EQ(LoadLibraryExW(Write(text).c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE), nullptr) << text;
        EXPECT_EQ(GetLastError(), error) << text;
    }
    EXPECT_EQ(LoadLibraryExW(W("none.txt"), nullptr, LOAD_LIBRARY_AS_DATAFILE), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_MOD_NOT_FOUND));
    EXPECT_EQ(LoadLibraryExW(Write("").c_str(), nullptr, 0), nullptr) << "to run its code is not served";
}

TEST_F(Strings, AppendedLinesStayWhole) {
    const wstr path = WidePath(m_root.Path() / "log");
    const auto append = [&](char mark) {
        const std::string line = std::string(200, mark) + "\n";
        for (int i = 0; i < 200; ++i) {
            const HANDLE file = CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                            OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
            DWORD written = 0;
            EXPECT_TRUE(WriteFile(file, line.data(), static_cast<DWORD>(line.size()), &written, nullptr));
            CloseHandle(file);
        }
    };
    std::vector<std::thread> threads;
    for (const char mark : {'a', 'b', 'c', 'd'}) threads.emplace_back(append, mark);
    for (std::thread& thread : threads) thread.join();
    std::ifstream in(m_root.Path() / "log");
    int lines = 0;
    for (std::string line; std::getline(in, line); ++lines) EXPECT_EQ(line, std::string(200, line[0]));
    EXPECT_EQ(lines, 800);
}

}  // namespace
