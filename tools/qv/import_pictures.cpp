#include "import_pictures.h"

#include "command.h"
#include "qv/diagnostic.h"
#include "qv/image.h"
#include "qv/multi_page_tiff.h"
#include "source.h"
#include "text.h"

namespace tool {

namespace {

/// The pages of one picture; a PNG file is one page.
class Pages {
public:
    explicit Pages(const std::string& path) : m_path(path), m_file(openInput(path)) {
        qv::SImageInfo info;
        qv::ClearDiagnostic();
        if (!qv::GetImageInfo(m_file, info)) {
            throw diagnosed(qv::IsImageFile(m_file) ? Exit::damaged : Exit::wrongKind, path, "is no picture");
        }
        if (!info.whole) throw diagnosed(Exit::damaged, path, "is not whole");
        m_isStack = info.format == qv::EImageFormat::tiff;
        if (!m_isStack && info.format != qv::EImageFormat::png) {
            throw Failure(Exit::wrongKind, path + ": is neither PNG nor TIFF (--raw takes plain frames)");
        }
        m_first = layout(info.width, info.height, info.dataType);
        if (m_isStack && !m_stack.Open(m_file)) throw diagnosed(Exit::damaged, path, "is damaged");
    }

    uint32_t count() const { return m_isStack ? m_stack.GetPageCount() : 1; }
    Layout layoutOf(uint32_t page) {
        if (!m_isStack) return m_first;
        uint32_t width = 0, height = 0;
        qv::EDataType type = qv::EDataType::none;
        if (!m_stack.GetPageInfo(page, width, height, type)) throw diagnosed(Exit::damaged, m_path, "is damaged");
        return layout(width, height, type);
    }
    void read(uint32_t page, void* to, uint32_t bytes) {
        qv::ClearDiagnostic();
        const bool whole =
            m_isStack ? m_stack.ReadPage(page, to, bytes) : qv::LoadPNG16(m_file, static_cast<uint16_t*>(to), bytes);
        if (!whole) throw diagnosed(Exit::damaged, m_path, "cannot be decoded");
    }

private:
    Layout layout(uint32_t width, uint32_t height, qv::EDataType type) const {
        const bool taken =
            type == qv::EDataType::uint16 || type == qv::EDataType::flt32 || type == qv::EDataType::flt64;
        if (!taken) throw Failure(Exit::wrongKind, m_path + ": holds no 16-bit grey values and no floats");
        if (uint64_t{width} * height > 0x8000000) throw Failure(Exit::damaged, m_path + ": is too large for a frame");
        Layout made;
        made.width = width, made.height = height, made.frames = 1, made.type = type;
        return made;
    }

    std::string m_path;
    qv::TSharedPtr<qv::IFile> m_file;
    qv::CMultiPageTIFFFile m_stack;
    bool m_isStack = false;
    Layout m_first;
};

std::string described(const Layout& layout) {
    return std::to_string(layout.width) + " x " + std::to_string(layout.height) + ", " + elementWord(layout.type);
}

}  // namespace

Layout layoutOfPictures(const std::vector<std::string>& paths) {
    Layout all;
    uint64_t frames = 0;
    for (const std::string& path : paths) {
        Pages pages(path);
        for (uint32_t page = 0; page < pages.count(); ++page) {
            const Layout one = pages.layoutOf(page);
            if (frames++ == 0) all = one;
            if (one.width != all.width || one.height != all.height || one.type != all.type) {
                throw Failure(Exit::damaged, path + ": page " + std::to_string(page) + " is " + described(one) +
                                                 ", the first one is " + described(all));
            }
        }
    }
    if (frames == 0 || frames > 0x7FFFFFFF) throw Failure(Exit::damaged, paths.front() + ": no or too many frames");
    all.frames = static_cast<uint32_t>(frames);
    return all;
}

void readPictures(const std::vector<std::string>& paths, const Layout& layout,
                  const std::function<void(const void*)>& take) {
    std::vector<std::byte> frame(layout.frameBytes());
    for (const std::string& path : paths) {
        Pages pages(path);
        for (uint32_t page = 0; page < pages.count(); ++page) {
            pages.read(page, frame.data(), layout.frameBytes());
            take(frame.data());
        }
    }
}

}  // namespace tool
