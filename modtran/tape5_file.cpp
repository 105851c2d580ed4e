// CModtranTape5File: runs, files, errors.
#include "qv/tape5_file.h"

#include <algorithm>
#include <string>

#include "measurement/whole_file.h"
#include "modtran/tape5_reader.h"
#include "modtran/tape5_writer.h"
#include "qv/diagnostic.h"

namespace qv {

namespace {

using tape5::RUN;

constexpr uint32_t openForReading = 0x212;  // existing, read, share reading

uint32_t at(int32_t index) { return static_cast<uint32_t>(index); }

bool isPartial(int32_t flag) { return tape5::partOf(flag) != tape5::inFull; }

/// The first card that a run repeated by `part` would not write although it is not as in the run in front.
bool isAsBefore(const RUN& before, const RUN& run, uint8_t part, int32_t index, CString& reason) {
    std::string earlier, later;
    if (!tape5::write(before, part, true, earlier, reason) || !tape5::write(run, part, true, later, reason)) {
        return false;
    }
    if (earlier == later) return true;
    reason.Format(u"Run %d is repeated in part, but differs from the run before in a card that is not written.", index);
    return false;
}

}  // namespace

// Out of line: copies and defaults of a run are large.
CModtranTape5File::CModtranTape5File() : m_lastError(u"No Error") {}
CModtranTape5File::CModtranTape5File(const CModtranTape5File& other) = default;
CModtranTape5File::~CModtranTape5File() = default;

CModtranTape5File& CModtranTape5File::operator=(const CModtranTape5File& other) {
    if (this == &other) return *this;
    m_runs = other.m_runs;
    m_current = other.m_current;
    m_lastError = other.m_lastError;
    return *this;
}

bool CModtranTape5File::fail(const CString& text) const {
    m_lastError = text;
    return false;
}

CString CModtranTape5File::LastError() const { return m_lastError; }

bool CModtranTape5File::exists(int32_t index) const {
    return RunExists(index) || fail(CString::FromFormat(u"Run %d does not exist.", index));
}

// Runs ----------------------------------------------------------------------------------------------------------------

void CModtranTape5File::New() {
    Destroy();
    (void)AddRun();
}

void CModtranTape5File::Destroy() {
    m_runs.Destroy();
    m_current = -1;
    m_lastError = u"No Error";
}

RUN CModtranTape5File::DefaultRun() { return {}; }

bool CModtranTape5File::AddRun() {
    RUN run;
    if (!m_runs.empty() && isPartial(m_runs.back().irpt)) {
        run = m_runs.back();
        run.irpt = 0;
    }
    return AddRun(run);
}

bool CModtranTape5File::AddRun(const RUN& run) {
    if (m_runs.size() >= listLimit || !m_runs.Add(run)) return fail(u"There is no room for another run.");
    m_current = nRuns() - 1;
    if (m_current > 0 && m_runs[at(m_current) - 1].irpt == 0) m_runs[at(m_current) - 1].irpt = 1;
    return true;
}

bool CModtranTape5File::CopyRun(int32_t index) {
    if (!exists(index)) return false;
    RUN run = m_runs[at(index)];
    run.irpt = 0;
    const int32_t last = nRuns() - 1;
    if (!AddRun(run)) return false;
    m_runs[at(last)].irpt = 1;
    return true;
}

bool CModtranTape5File::RemoveRun(int32_t index) {
    if (!exists(index)) return false;
    if (nRuns() == 1) return fail(u"Can't remove last run; use ResetRun instead.");
    m_runs.Remove(at(index));
    if (index == nRuns()) {
        m_runs.back().irpt = 0;
    } else if (index > 0 && isPartial(m_runs[at(index) - 1].irpt)) {
        m_runs[at(index) - 1].irpt = 1;
    }
    if (m_current > index) --m_current;
    m_current = std::min(m_current, nRuns() - 1);
    return true;
}

bool CModtranTape5File::ResetRun() {
    return change([](RUN& run) {
        const int32_t flag = run.irpt;
        run = RUN();
        run.irpt = flag;
    });
}

int32_t CModtranTape5File::CurrentRun() const { return m_current; }

bool CModtranTape5File::UseRun(int32_t index) {
    if (!exists(index)) return false;
    m_current = index;
    return true;
}

bool CModtranTape5File::RunExists(int32_t index) const { return index >= 0 && index < nRuns(); }

int32_t CModtranTape5File::nRuns() const { return static_cast<int32_t>(m_runs.size()); }

bool CModtranTape5File::GetRun(int32_t index, RUN& run) const {
    if (!exists(index)) return false;
    run = m_runs.ConstGetItem(at(index));
    return true;
}

bool CModtranTape5File::SetRun(int32_t index, const RUN& run) {
    if (!exists(index)) return false;
    if (&m_runs[at(index)] != &run) m_runs[at(index)] = run;
    return true;
}

// Reading -------------------------------------------------------------------------------------------------------------

bool CModtranTape5File::Load(TSharedPtr<IFile> file) {
    std::string bytes;
    TArray<RUN> runs;
    ClearDiagnostic();
    if (!file) return fail(u"Can't open file .");
    tape5::Reader reader(tape5::readBytes(*file, bytes) ? std::string_view(bytes) : std::string_view());
    if (LastDiagnostic().IsSet() || !tape5::readDeck(reader, runs)) return fail(LastDiagnostic().ToString());
    m_runs = runs;
    m_current = 0;
    return true;
}

bool CModtranTape5File::Load(IFileSystem* fs, const char16_t* path) {
    const CString name(path);
    TSharedPtr<IFile> file;
    if (fs != nullptr) file = fs->CreateFileW(name.c_str(), openForReading);
    if (!file) return fail(CString::FromFormat(u"Can't open file %s.", name));
    if (Load(file)) return true;
    SetDiagnosticFile(name);
    return false;
}

bool CModtranTape5File::Load(const char16_t* path) { return Load(&fileSystem(), path); }

bool CModtranTape5File::LoadRun(TSharedPtr<IFile> file) {
    std::string bytes;
    ClearDiagnostic();
    if (!file) return fail(u"Can't open file .");
    const int64_t begin = file->GetPosition();
    if (!tape5::readBytes(*file, bytes)) return fail(LastDiagnostic().ToString());
    tape5::Reader reader(bytes);
    const uint8_t part = m_runs.empty() ? uint8_t{tape5::inFull} : tape5::partOf(m_runs.back().irpt);
    RUN run;
    if (part != tape5::inFull) run = m_runs.back();
    if (!reader.readRun(run, part)) {
        file->SetPosition(begin);
        return fail(LastDiagnostic().ToString());
    }
    file->SetPosition(begin + static_cast<int64_t>(reader.position()));
    if (run.irpt == 2 || run.irpt == -2) run.irpt = 0;  // as the program takes it
    return AddRun(run);
}

// Writing -------------------------------------------------------------------------------------------------------------

bool CModtranTape5File::render(int32_t index, CStringMB& bytes) const {
    if (!exists(index)) return false;
    const RUN& run = m_runs.ConstGetItem(at(index));
    CString reason = tape5::firstIllegal(run);
    if (!reason.IsEmpty()) return fail(reason);
    const RUN* before = index == 0 ? nullptr : &m_runs.ConstGetItem(at(index) - 1);
    const uint8_t part = before == nullptr ? uint8_t{tape5::inFull} : tape5::partOf(before->irpt);
    if (part != tape5::inFull && !isAsBefore(*before, run, part, index, reason)) return fail(reason);
    std::string made;
    if (!tape5::write(run, part, false, made, reason)) return fail(reason);
    bytes.append(made);
    return true;
}

bool CModtranTape5File::renderAll(CStringMB& bytes) const {
    if (m_runs.empty()) return fail(u"No runs to save.");
    for (int32_t i = 0; i < nRuns(); ++i) {
        if (!render(i, bytes)) return false;
        const bool isLast = i + 1 == nRuns(), ends = m_runs.ConstGetItem(at(i)).irpt == 0;
        if (isLast && !ends) return fail(CString::FromFormat(u"Run %d announces another, but is the last.", i));
        if (!isLast && ends) return fail(CString::FromFormat(u"Run %d ends the deck, but another follows.", i));
    }
    return true;
}

bool CModtranTape5File::CheckRun(int32_t index) const {
    CStringMB bytes;
    return render(index, bytes);
}

bool CModtranTape5File::Save(TSharedPtr<IFile> file) const {
    CStringMB bytes;
    if (!renderAll(bytes)) return false;
    return (file && file->WriteBytes(bytes.data(), static_cast<uint32_t>(bytes.length()))) ||
           fail(u"Can't create file .");
}

bool CModtranTape5File::Save(IFileSystem* fs, const char16_t* path) const {
    CStringMB bytes;
    if (!renderAll(bytes)) return false;
    const CString name(path);
    const auto body = [&bytes](const TSharedPtr<IFile>& file) {
        if (file->WriteBytes(bytes.data(), static_cast<uint32_t>(bytes.length()))) return true;
        SetDiagnostic(CString(), CString::FromFormat(u"room for %d bytes", bytes.GetLength()), u"a short write");
        return false;
    };
    return Private::writeWhole(fs, name.c_str(), body) || fail(CString::FromFormat(u"Can't create file %s.", name));
}

bool CModtranTape5File::Save(const char16_t* path) const { return Save(&fileSystem(), path); }

bool CModtranTape5File::SaveRun(TSharedPtr<IFile> file, int32_t index) const {
    CStringMB bytes;
    if (!render(index, bytes)) return false;
    return (file && file->WriteBytes(bytes.data(), static_cast<uint32_t>(bytes.length()))) ||
           fail(u"Can't create file .");
}

bool CModtranTape5File::SaveRun(TSharedPtr<IFile> file) const {
    return RunExists(m_current) ? SaveRun(file, m_current) : fail(u"Current run not selected.");
}

}  // namespace qv
