// A program outside the project: uses the installed library and nothing else.
#include <cstdio>

#include "qv/qv.h"

int main() {
    qv::TArray<qv::CString> words;
    qv::CString(u"celsius,kelvin").Split(words, u",");
    std::printf("qv %s: %s\n", QV_VERSION_STRING, qv::CStringMB(words.back().c_str()).c_str());
    return words.size() == 2 ? 0 : 1;
}
