// Fields: their values, names and codes.
#include <charconv>

#include "core/format.h"
#include "core/text.h"
#include "modtran/tape5_table.h"

namespace qv::tape5 {

int32_t Access::integerOf(const RUN& run, Index x) const {
    return storage == Storage::integer ? *integer(const_cast<RUN&>(run), x) : derivedInteger.get(run, x);
}

CStringMB Access::textOf(const RUN& run, Index x) const {
    return storage == Storage::text ? *text(const_cast<RUN&>(run), x) : derivedText.get(run, x);
}

bool Access::setInteger(RUN& run, Index x, int32_t value) const {
    if (storage == Storage::derivedInteger) return derivedInteger.set(run, x, value);
    *integer(run, x) = value;
    return true;
}

bool Access::setText(RUN& run, Index x, std::string_view value) const {
    if (storage == Storage::derivedText) return derivedText.set(run, x, trimmed(value));
    *text(run, x) = CStringMB(trimmed(value));
    return true;
}

std::string_view trimmed(std::string_view text) {
    const size_t begin = text.find_first_not_of(' ');
    return begin == text.npos ? std::string_view() : text.substr(begin, text.find_last_not_of(' ') - begin + 1);
}

std::string fullName(const Block& block, const Card& card, const Field& field, Index x) {
    std::string name = field.name;
    if (block.count != nullptr) name += text::formatted(".%u", x.i + 1);
    if (card.elements != nullptr) name += text::formatted(".%u", x.j + 1);
    return name;
}

std::string valueOf(const RUN& run, const Field& field, Index x) {
    const Access& access = field.access;
    switch (access.storage) {
        case Storage::real: {
            char digits[32];
            const auto [end, error] = std::to_chars(digits, digits + sizeof digits, access.realOf(run, x));
            return error == std::errc() ? std::string(digits, end) : std::string();
        }
        case Storage::character: return std::string(1, access.characterOf(run, x));
        case Storage::text:
        case Storage::derivedText: return std::string(trimmed(access.textOf(run, x).view()));
        default: return std::to_string(access.integerOf(run, x));
    }
}

bool isLegal(const RUN& run, const Field& field, Index x) {
    const Legal& legal = field.legal;
    if (legal.message == nullptr) return true;
    if (legal.letters != nullptr) {
        const char letter = text::toUpper(field.access.characterOf(run, x));
        return std::string_view(legal.letters).find(letter) != std::string_view::npos;
    }
    const int32_t code = field.access.integerOf(run, x);
    for (const int32_t known : legal.codes) {
        if (known == code) return true;
    }
    return false;
}

CString illegal(const RUN& run, const Field& field, Index x) {
    if (field.legal.letters != nullptr)
        return CString::FromFormat(field.legal.message, field.access.characterOf(run, x));
    return CString::FromFormat(field.legal.message, field.access.integerOf(run, x));
}

}  // namespace qv::tape5
