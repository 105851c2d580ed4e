// Reads data that was compiled in.
#include <cstdio>

#include "qv/resource_file_system.h"

int main() {
    const auto file = qv::resourceFileSystem().CreateFileW(u"/words/words.txt", qv::CFile::accessRead);
    char line[80];
    if (!file || !file->GetLine(line, sizeof line)) return 1;
    std::puts(line);
    return 0;
}
