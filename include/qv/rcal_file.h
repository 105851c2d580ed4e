// CRCalFile: the radiometric calibration of one camera setup. It turns camera counts into radiance and temperature.
//
// A calibration holds a spectral response (from a file, or a computed top-hat), additional responses (lens, filter),
// optional atmospheric curves, and pages. A page holds measured points and the polynomials fitted to them: counts to
// radiance from the points, radiance to temperature from a table of the calibration's own Planck integral.
// Start with Load, or with spectralResponse(), calPages().Add() and page.points().Add(); then CalcRadiance and
// GetCoefficients.
//
// Units: wavelengths in microns, temperatures in degrees Celsius, radiance in W/(sr cm^2).
#pragma once

#include <cstdint>
#include <memory>

#include "qv/api.h"
#include "qv/array.h"
#include "qv/file.h"
#include "qv/file_system.h"
#include "qv/shared_ptr.h"
#include "qv/string.h"
#include "qv/tag_file.h"
#include "qv/typed_data.h"

namespace qv {

class CNormFile;
enum class RCalChange : int32_t;

/// What became of loading a response or curve file.
enum class EResponseStatus : int32_t {
    loaded = 0,
    notSet = 1,
    fileMissing = 2,
    unreadable = 3,
    tooFewPoints = 7,  ///< fewer than two
};

/// Which response is in force, as callers see it: 1 is the file, any other value the top-hat.
enum class ESpectralResponseType : int32_t { tophat = 0, file = 1 };

/// How light that a source reflects enters a point's radiance.
enum class EReflectedRadianceType : int32_t { none = 0, constant = 1, calculate = 2 };

/// Where a page's background comes from.
enum class BACKGROUND_TYPE : int32_t { notSet = 0, none = 1, value = 2, file = 3 };

/// One measured point of a page.
struct QV_API CAL_POINT {
    double temperature = 0.0;  ///< Of the source.
    double emissivity = 1.0;   ///< Of the source.
    double area = 0.0;         ///< Of the source, in the page's area units.
    double distance = 0.0;     ///< To the source, in the page's distance units.
    double measurement = 0.0;  ///< Camera counts.
    EReflectedRadianceType reflectedRadianceType = EReflectedRadianceType::none;
    double reflectedEmissivity = 1.0;   ///< Of what the source reflects.
    double reflectedTemperature = 0.0;  ///< Of what the source reflects.
    double reflectedRadiance = 0.0;     ///< Used when the type is `constant`.
    bool enabled = true;                ///< Only enabled points enter fits and ranges.
    double radiance = 0.0;              ///< Calculated; a caller's value does not last.
};

/// A background picture of a page; offsets and sizes in pixels.
struct QV_API BACKGROUND_FILE {
    uint32_t xOffset = 0;
    uint32_t yOffset = 0;
    uint32_t width = 0;
    uint32_t height = 0;
    EDataType type = EDataType::none;  ///< Of a pixel.
    TSharedPtr<ITypedBuffer> pixels;
};

/// A polynomial of the user's that takes the place of the calculated one while `valid`.
struct QV_API POLY_OVERRIDE {
    bool valid = false;
    int32_t order = 0;
    TArray<double> values;  ///< Lowest power first.
};

/// One page: points, polynomials, range, background.
struct QV_API CAL_PAGE {
    bool radiance = true;       ///< Stored only.
    int32_t areaUnits = 0;      ///< 0 to 2: cm squared, diameter, side; 3 to 5: the same in inches.
    int32_t distanceUnits = 0;  ///< 0 cm, 1 in, 2 ft.
    TArray<CAL_POINT> points;   ///< Ascending by temperature.
    double checkCounts = 0.0;   ///< The four check values are stored only.
    double checkRadiance = 0.0;
    int32_t polyOrder = 1;     ///< Counts to radiance.
    double lookupStart = 0.0;  ///< Temperatures of the lookup table: first, last (degrees Celsius) and step.
    double lookupEnd = 100.0;
    double lookupDelta = 1.0;
    double lookupEmissivity = 1.0;  ///< That its radiances are calculated for.
    double checkTemperature = 0.0;
    double checkLookup = 0.0;
    int32_t tempPolyOrder = 6;      ///< Radiance to temperature.
    TArray<double> lookupRadiance;  ///< Calculated, as many as temperatures.
    TArray<double> lookupTemperature;
    TArray<double> coeffs;      ///< Calculated, counts to radiance, lowest power first.
    TArray<double> tempCoeffs;  ///< Calculated, radiance to temperature, lowest power first.
    double r2 = 0.0;            ///< Of `coeffs`; 0 where the fit failed.
    double tempR2 = 0.0;        ///< Of `tempCoeffs`; likewise.
    POLY_OVERRIDE coeffsOverride;
    POLY_OVERRIDE tempCoeffsOverride;
    double tpfact = 1.0;  ///< Stored only.
    bool tpfactValid = false;
    BACKGROUND_TYPE backgroundType = BACKGROUND_TYPE::notSet;
    double backgroundValue = 0.0;
    TArray<BACKGROUND_FILE> backgroundFiles;
    CTagArray tags;
    bool autoRange = true;  ///< The six values below follow the points.
    double minTemperature = 0.0;
    double maxTemperature = 0.0;
    double minRadiance = 0.0;
    double maxRadiance = 0.0;
    double minCounts = 0.0;
    double maxCounts = 0.0;
};

/// A response curve: as it was read, and on the calibration's working axis.
struct QV_API RCAL_CURVE {
    TArray<double> rawX;  ///< As it was read, in microns.
    TArray<double> rawY;
    TArray<double> x;  ///< On the working axis.
    TArray<double> y;
};

/// An additional response, such as a lens or a filter. The spelling is the format's.
struct QV_API RESPONCE {
    CString file;  ///< Path of the curve file.
    bool enabled = true;
    EResponseStatus status = EResponseStatus::notSet;
    RCAL_CURVE curve;
};

/// A radiometric calibration.
///
/// Its parts are reached through small proxies (CCalPage, CCalPoint, ...) that hold a pointer to the calibration and
/// indexes, and own nothing. A setter writes into the calibration and then re-runs exactly what depends on the change.
/// A proxy whose index is out of range reads 0 or false, and its setters do nothing.
/// Failure: false, with a diagnostic. A response or curve file that cannot be read does not fail Load; it leaves a
/// status, and the calibration goes on without it.
/// Threads: the calibration and its proxies stay on one thread at a time. Constant calculations on one calibration
/// (CalcRadiance and its kin) keep a cache and are not for two threads either; copy the calibration instead.
class QV_API CRCalFile {
public:
    /// A curve on the working axis, or as it was read.
    class QV_API CCurve {
    public:
        CCurve(const TArray<double>* xValues, const TArray<double>* yValues) : m_x(xValues), m_y(yValues) {}
        /// The smaller of the two arrays' counts.
        uint32_t getCount() const;
        /// 0 past the end.
        double getX(uint32_t index) const;
        double getY(uint32_t index) const;

    private:
        const TArray<double>* m_x;
        const TArray<double>* m_y;
    };

    /// The working axis, in microns ascending: every integral of the calibration is over it.
    class QV_API CAxis {
    public:
        explicit CAxis(const CRCalFile* file) : m_file(file) {}
        uint32_t getCount() const;
        /// 0 past the end.
        double operator[](uint32_t index) const;

    private:
        const CRCalFile* m_file;
    };

    /// The coefficients that a page uses, lowest power first: the override where it is valid.
    class QV_API CCoefficients {
    public:
        CCoefficients(const CRCalFile* file, int32_t page, bool reverse)
            : m_file(file), m_page(page), m_reverse(reverse) {}
        uint32_t getCount() const;
        /// 0 past the end.
        double operator[](uint32_t index) const;
        /// Quality of the calculated fit; 0 where it failed.
        double getR2() const;

    private:
        const CRCalFile* m_file;
        int32_t m_page;
        bool m_reverse;
    };

    /// The table from which a page's radiance-to-temperature polynomial is fitted.
    class QV_API CLookup {
    public:
        CLookup(CRCalFile* file, int32_t page) : m_file(file), m_page(page) {}
        /// The table's temperatures, and the emissivity of its radiances. A setter rebuilds the table and its fit.
        double getStart() const;
        void setStart(double celsius);
        double getEnd() const;
        void setEnd(double celsius);
        double getDelta() const;
        void setDelta(double kelvin);
        double getEmissivity() const;
        void setEmissivity(double emissivity);
        /// X is radiance, Y temperature.
        CCurve getCurve() const;

    private:
        CRCalFile* m_file;
        int32_t m_page;
    };

    /// The calibrated range of a page.
    class QV_API CRange {
    public:
        CRange(CRCalFile* file, int32_t page) : m_file(file), m_page(page) {}
        /// Automatic: the range spans the enabled points.
        bool getAuto() const;
        void setAuto(bool automatic);
        /// The six ends, as they were set or as the points gave them.
        double getMinCounts() const;
        void setMinCounts(double counts);
        double getMaxCounts() const;
        void setMaxCounts(double counts);
        double getMinRadiance() const;
        void setMinRadiance(double radiance);
        double getMaxRadiance() const;
        void setMaxRadiance(double radiance);
        double getMinTemperature() const;
        void setMinTemperature(double celsius);
        double getMaxTemperature() const;
        void setMaxTemperature(double celsius);

    private:
        CRCalFile* m_file;
        int32_t m_page;
    };

    /// One point of a page. setTemperature sorts the page: the proxy then stands for whichever point has its index.
    class QV_API CCalPoint {
    public:
        CCalPoint(CRCalFile* file, int32_t page, int32_t point) : m_file(file), m_page(page), m_point(point) {}
        /// The page has a point of this index.
        bool getExists() const;
        /// The members of CAL_POINT. A setter re-runs what depends on it: the point's radiance, the page's fit, and
        /// for `temperature` and `enabled` the automatic range.
        double getTemperature() const;
        void setTemperature(double celsius);
        double getEmissivity() const;
        void setEmissivity(double emissivity);
        double getMeasurement() const;
        void setMeasurement(double counts);
        double getRadiance() const;
        bool getEnabled() const;
        void setEnabled(bool enabled);
        double getReflectedRadiance() const;
        void setReflectedRadiance(double radiance);
        double getReflectedTemperature() const;
        void setReflectedTemperature(double celsius);
        double getReflectedEmissivity() const;
        void setReflectedEmissivity(double emissivity);
        EReflectedRadianceType getReflectedRadianceType() const;
        void setReflectedRadianceType(EReflectedRadianceType type);

    private:
        CRCalFile* m_file;
        int32_t m_page;
        int32_t m_point;
    };

    /// The points of a page, ascending by temperature.
    class QV_API CCalPoints {
    public:
        CCalPoints(CRCalFile* file, int32_t page) : m_file(file), m_page(page) {}
        /// Adds a point, sorts and refits. The result is the point's index after sorting, -1 for no such page.
        int32_t Add(const CAL_POINT& point);
        /// Removes a point and refits; false out of range.
        bool Remove(int32_t index);
        int32_t getCount() const;
        int32_t getNumEnabled() const;
        CCalPoint operator[](int32_t index) const { return CCalPoint(m_file, m_page, index); }

    private:
        CRCalFile* m_file;
        int32_t m_page;
    };

    /// One page: its points, range, lookup table and polynomials.
    class QV_API CCalPage {
    public:
        CCalPage(CRCalFile* file, int32_t page) : m_file(file), m_page(page) {}
        /// The calibration has a page of this index.
        bool getExists() const;
        /// The order in use: the override's where it is valid.
        int32_t getPolyOrder() const;
        /// Clamped to the number of points less one, then to at least 1.
        void setPolyOrder(int32_t order);
        /// The same of the polynomial from radiance to temperature.
        int32_t getTempPolyOrder() const;
        void setTempPolyOrder(int32_t order);
        /// Radiance of a measurement by the coefficients in use; 0 without any.
        double getRadiance(double counts) const;
        /// Temperature of a radiance by the reverse coefficients in use; 0 without any.
        double getTemperature(double radiance) const;
        /// The measurement that gives a radiance, by the fit with the roles of the two exchanged; 0 where that fails.
        double getMeasurement(double radiance) const;
        /// Lowest and highest temperature of the page's range; false for no such page.
        bool GetTemperatureRange(double& low, double& high) const;

        /// The page's parts. `coefficients` lead from counts to radiance, `tempCoefficients` from radiance to
        /// temperature.
        CCalPoints points() const { return CCalPoints(m_file, m_page); }
        CRange range() const { return CRange(m_file, m_page); }
        CLookup lookup() const { return CLookup(m_file, m_page); }
        CCoefficients coefficients() const { return CCoefficients(m_file, m_page, false); }
        CCoefficients tempCoefficients() const { return CCoefficients(m_file, m_page, true); }

    private:
        CRCalFile* m_file;
        int32_t m_page;
    };

    /// The pages of the calibration, from 0.
    class QV_API CCalPages {
    public:
        explicit CCalPages(CRCalFile* file) : m_file(file) {}
        /// Adds a page and calculates it; the result is its index.
        int32_t Add(const CAL_PAGE& page = CAL_PAGE());
        /// False out of range.
        bool Remove(int32_t index);
        int32_t getCount() const;
        CCalPage operator[](int32_t index) const { return CCalPage(m_file, index); }

    private:
        CRCalFile* m_file;
    };

    /// The computed response: 1 from `start` to `end`, in steps of `delta`.
    class QV_API CTophat {
    public:
        explicit CTophat(CRCalFile* file) : m_file(file) {}
        double getStart() const;
        void setStart(double microns);
        double getEnd() const;
        void setEnd(double microns);
        double getDelta() const;
        void setDelta(double microns);

    private:
        CRCalFile* m_file;
    };

    /// The camera's own response: a file's curve, or the top-hat.
    class QV_API CSpectralResponse {
    public:
        explicit CSpectralResponse(CRCalFile* file) : m_file(file) {}
        /// `file` only when the response file is enabled and loaded.
        ESpectralResponseType getType() const;
        /// `file` loads the file and falls back to the top-hat when that fails.
        void setType(ESpectralResponseType type);
        /// Path of the response file. Setting it loads the file, and puts it in force unless the top-hat was chosen.
        const CString& getFile() const;
        void setFile(const CString& path);
        /// What became of loading the file.
        EResponseStatus getStatus() const;
        /// The band in use: the override where it is valid.
        double getBandpassLow() const;
        double getBandpassHigh() const;
        /// The curve on the working axis, and as it was read.
        CCurve getCurve() const;
        CCurve getRawCurve() const;

    private:
        CRCalFile* m_file;
    };

    /// A further factor of the response, such as a lens or a filter; 0 outside its own axis.
    class QV_API CAdditionalResponse {
    public:
        CAdditionalResponse(CRCalFile* file, int32_t index) : m_file(file), m_index(index) {}
        bool getEnabled() const;
        void setEnabled(bool enabled);
        CString getFile() const;
        void setFile(const CString& path);
        EResponseStatus getStatus() const;
        CCurve getCurve() const;

    private:
        CRCalFile* m_file;
        int32_t m_index;
    };

    /// The list of further factors, from 0.
    class QV_API CAdditionalResponses {
    public:
        explicit CAdditionalResponses(CRCalFile* file) : m_file(file) {}
        /// Adds an enabled response and loads it; the result is its index.
        int32_t Add(const CString& path);
        /// False out of range.
        bool Remove(int32_t index);
        int32_t getCount() const;
        CAdditionalResponse operator[](int32_t index) const { return CAdditionalResponse(m_file, index); }

    private:
        CRCalFile* m_file;
    };

    /// Curve 0 is the total transmission, curve 1 the path's thermal radiance, W/(sr cm^2) per micron.
    class QV_API CModtranCurve {
    public:
        CModtranCurve(CRCalFile* file, int32_t index) : m_file(file), m_index(index) {}
        bool getEnabled() const;
        void setEnabled(bool enabled);
        CCurve getCurve() const;
        CCurve getRawCurve() const;

    private:
        CRCalFile* m_file;
        int32_t m_index;
    };

    /// The atmosphere between source and camera, from an output file of the atmosphere program.
    class QV_API CModtran {
    public:
        explicit CModtran(CRCalFile* file) : m_file(file) {}
        const CString& getFile() const;
        void setFile(const CString& path);
        EResponseStatus getStatus() const;
        CModtranCurve operator[](int32_t index) const { return CModtranCurve(m_file, index); }

    private:
        CRCalFile* m_file;
    };

    CRCalFile();
    CRCalFile(const CRCalFile& other);
    CRCalFile& operator=(const CRCalFile& other);
    ~CRCalFile();

    /// Proxies of the calibration's parts; they are for use while the calibration lives.
    CCalPages calPages() { return CCalPages(this); }
    CCalPage calPage(int32_t page) { return CCalPage(this, page); }
    CTophat tophat() { return CTophat(this); }
    CSpectralResponse spectralResponse() { return CSpectralResponse(this); }
    CAdditionalResponses additionalResponses() { return CAdditionalResponses(this); }
    CModtran modtran() { return CModtran(this); }
    CAxis axis() const { return CAxis(this); }

    // The document -------------------------------------------------------------------------------------------------

    /// Flag of Save: the XML form, instead of the binary one.
    static constexpr uint32_t saveXml = 2;

    /// Empties the object. DefaultCal also gives every member its default.
    void Destroy();
    void DefaultCal();

    /// Reads a calibration, then its response files, and brings what an older revision stored up to date. A file of
    /// revision 7 or above keeps its stored radiances, fits and ranges exactly. `flags` is not used. Refused are more
    /// than 65536 pages, 64 additional responses, 262144 points of the top-hat, or (below revision 6) 2^29 products of
    /// points and points of the axis.
    bool Load(TSharedPtr<IFile> file, uint32_t flags);
    bool Load(IFileSystem* fs, const char16_t* path, uint32_t flags);
    /// Writes the calibration, always as revision 8.
    ///
    /// The binary form holds every number bit for bit, the XML form 14 digits of it. The binary form also keeps whether
    /// lookup tables follow changes by themselves (setAutoLookupUpdate), which is on behind the load of an XML form. It
    /// is big-endian when `file` swaps.
    /// @param flags  saveXml, or 0 for the binary form.
    bool Save(TSharedPtr<IFile> file, uint32_t flags);
    bool Save(IFileSystem* fs, const char16_t* path, uint32_t flags);
    /// The file begins as a calibration of either form. The position is left behind what was read.
    static bool IsRCalFile(TSharedPtr<IFile> file);
    static bool IsRCalFile(IFileSystem* fs, const CString& path);
    /// The revision of the file that was read; 7 for a new calibration.
    int32_t getRevision() const;

    /// Tags: page -1 is the calibration's own list. A page that does not exist has no tags: null, or false.
    const CTagArray& GetTags(int32_t page = -1) const;
    const char16_t* GetTag(const char16_t* name, int32_t page = -1) const;
    bool SetTag(const char16_t* name, const char16_t* value, int32_t page = -1);
    bool RemoveTag(const char16_t* name, int32_t page = -1);
    bool ClearTags(int32_t page = -1);

    // Background pictures ------------------------------------------------------------------------------------------
    // A picture is known by its offsets and size, in pixels; a form without a size means the first at the offsets.
    // Pixels are shared, not copied. The background's type and value are set apart (SetBackgroundType).

    /// Adds a picture, or replaces the one of the same place. The form without a size takes a single row. False when
    /// there is no such page, or the buffer is not exactly width x height elements of a type that AllocTypedBuffer has.
    bool AddBackgroundFile(int32_t page, uint32_t x, uint32_t y, const TSharedPtr<ITypedBuffer>& pixels);
    bool AddBackgroundFile(int32_t page, uint32_t x, uint32_t y, uint32_t width, uint32_t height,
                           const TSharedPtr<ITypedBuffer>& pixels);
    /// False when there is none.
    bool RemoveBackgroundFile(int32_t page, uint32_t x, uint32_t y);
    bool RemoveBackgroundFile(int32_t page, uint32_t x, uint32_t y, uint32_t width, uint32_t height);
    /// False for no such page.
    bool ClearBackgroundFiles(int32_t page);
    bool HasBackgroundFile(int32_t page, uint32_t x, uint32_t y) const;
    bool HasBackgroundFile(int32_t page, uint32_t x, uint32_t y, uint32_t width, uint32_t height) const;
    /// The pixels; null when there are none. The form with an index goes through the page's pictures from 0 and is
    /// false behind the last.
    TSharedPtr<ITypedBuffer> GetBackgroundFile(int32_t page, uint32_t x, uint32_t y) const;
    TSharedPtr<ITypedBuffer> GetBackgroundFile(int32_t page, uint32_t x, uint32_t y, uint32_t width,
                                               uint32_t height) const;
    bool GetBackgroundFile(int32_t page, uint32_t index, BACKGROUND_FILE& picture) const;
    /// CRC-32 (crc32Polynomial of qv/crc.h) of the pixels' bytes; false when there are none.
    bool GetBackgroundFileCRC(int32_t page, uint32_t x, uint32_t y, uint32_t& crc) const;
    /// A picture as a file of its own, ".bgimg": a text header (CSAFFile) with KeyWrd "IMG", xPixls, yPixls, NumDPs 1,
    /// DaType, BytOrd, xOffst and yOffst, and behind it the pixels, row by row. A file may hold several, one behind the
    /// other, up to 4096. Import adds all of them, or none and is false. The forms with an open file work from its
    /// position.
    bool ExportBackgroundFile(int32_t page, uint32_t x, uint32_t y, const TSharedPtr<IFile>& file) const;
    bool ExportBackgroundFile(int32_t page, uint32_t x, uint32_t y, IFileSystem* fs, const char16_t* path) const;
    bool ImportBackgroundFile(int32_t page, const TSharedPtr<IFile>& file);
    bool ImportBackgroundFile(int32_t page, IFileSystem* fs, const char16_t* path);

    // Pages of several calibrations --------------------------------------------------------------------------------
    // Pages are copied as they are, with their fits and tables. The calibrations of a call may be this one.

    /// `target` becomes a copy of this calibration with that page alone. False for no such page.
    bool Extract(CRCalFile& target, int32_t page) const;
    /// This becomes a copy of `a`, `b`, `c` or `d`, as `which` is 0 (or any other value), 1, 2 or 3, with page 0 of
    /// each of the four as its pages, in order. The form with a list does the same with any number of calibrations.
    /// False, with nothing changed, when one of them has no page or is null, or the list is empty or above 65536.
    bool Merge(const CRCalFile& a, const CRCalFile& b, const CRCalFile& c, const CRCalFile& d, int32_t which);
    bool Merge(const TArray<CRCalFile*>& calibrations, int32_t which);
    /// Removes every other page. False for no such page.
    bool RemoveAllExcept(int32_t page);
    /// Puts a page of `source` in the place of page `destPage`, which may be 0 to 3 (pages in front of it that do not
    /// exist are made), and calculates it anew, with its lookup table. False, with nothing changed, for other pages.
    bool ImportPreset(const CRCalFile& source, int32_t sourcePage, int32_t destPage);

    // The older form: a text header with keys for up to four pages, and companion files ----------------------------

    /// Number of pages that the older form has keys for.
    static constexpr int32_t presetPages = 4;

    /// Reads a header (CSAFFile) with its include file and companions, and replaces the calibration.
    ///
    /// First the calibration of "CAFile" is loaded, then the keys of header and include are laid over it; a name that
    /// is in both counts in the header. A key of page N ends in "_N"; one without suffix is page 0's. A number that
    /// says what the calibration already has, to seven digits or as many more as it has, changes nothing; any other is
    /// taken: a polynomial as a valid override (when all its coefficients are there), a band likewise, and so on. What
    /// is no finite number says nothing. Without "CAFile" the band also becomes the top-hat. Keys with names that are
    /// not reserved become tags. Names of companions are seen from the header's folder. One that is missing or
    /// unreadable leaves its part at the default, and a diagnostic.
    /// @param gains, offsets, badPixels  Receive the tables of "CGFile", "COFile" and "BPFile"; may be null.
    /// @return False, with defaults, when the header cannot be read.
    bool Import(IFileSystem* fs, const char16_t* path, CNormFile* gains = nullptr, CNormFile* offsets = nullptr,
                CNormFile* badPixels = nullptr);

    /// Writes the older form: the header with extension ".cal", beside it the include file ".inc" with the keys of the
    /// pages, and for each page with background pictures "-PS<page>.bgimg". `path` is that of any of them; its
    /// extension does not count. Files of these names are replaced.
    ///
    /// Polynomials and band are those in use, with seven digits ("%e"). The calibration itself, which keeps everything,
    /// goes along as "CAFile": Import of what Export wrote gives an equal calibration.
    /// Range, field of view and factor are written where they are valid. Of more than four pages, tags with reserved
    /// names, and tags that a header line cannot hold, only "CAFile" tells.
    /// @param calibrationFile  The file that holds this calibration, absolute or seen from the header's folder. Null:
    ///                         it is saved beside the header, in binary form, with extension ".rcal".
    bool Export(IFileSystem* fs, const char16_t* path, const char16_t* calibrationFile = nullptr);

    /// Rewrites the keys of the pages in an existing include file, with the background pictures beside it. Its other
    /// keys stay. False when it is no header that can be read and written.
    bool UpdateInclude(IFileSystem* fs, const char16_t* path);

    /// Names, in any case, of keys that the older form gives a meaning: no user's tag can have them. Among them those
    /// of the pages, with suffix "_0" to "_3" or without.
    static bool IsReservedTagName(const char16_t* name);

    // Radiance -----------------------------------------------------------------------------------------------------

    /// In-band radiance of a source through the responses and the enabled atmospheric curves: the integral, by
    /// right-hand rectangles over the working axis, of Planck's law times every response. 0.0 without an axis.
    double CalcRadiance(double temperature, double emissivity) const;
    /// The same without the atmosphere.
    double CalcRadianceNoModtran(double temperature, double emissivity) const;
    double CalcSourceRadiance(double temperature, double emissivity) const;
    /// With what the source reflects: a radiance, or a surrounding of that temperature and emissivity, which the source
    /// reflects by 1 - e. (With a path radiance enabled, the second form counts it twice.)
    double CalcRadianceEx(double t, double e, double reflectedRadiance) const;
    double CalcRadianceEx(double t, double e, double reflectedTemperature, double reflectedEmissivity) const;
    double CalcRadianceEx(double t, double e, EReflectedRadianceType type, double reflectedRadiance,
                          double reflectedTemperature, double reflectedEmissivity) const;
    /// The product of all responses in force, on the working axis.
    void GetFinalSpectralResponse(TArray<double>& x, TArray<double>& y) const;
    /// That response times Planck's law. An enabled path radiance enters twice: inside the response, multiplied by
    /// Planck's law, and once more unmultiplied.
    void GetFinalPlanck(TArray<double>& x, TArray<double>& y, double t, double e) const;

    /// Polynomials: `Get` gives the override where it is valid and the calculated one otherwise, `GetCalc` the
    /// calculated one, `GetUsed` the override, `SetUsed` writes the override. False for a page that does not exist. The
    /// forms with a double* write GetNumCoeffsForOrder(order) values, or as many as there are.
    bool GetPolyOrder(int32_t page, int32_t& order) const;
    bool GetCoefficients(int32_t page, double* values) const;
    bool GetCoefficients(int32_t page, TArray<double>& values) const;
    bool GetTempPolyOrder(int32_t page, int32_t& order) const;
    bool GetTempCoefficients(int32_t page, double* values) const;
    bool GetTempCoefficients(int32_t page, TArray<double>& values) const;

    /// The calculated ones.
    bool GetCalcPolyOrder(int32_t page, int32_t& order) const;
    bool GetCalcCoefficients(int32_t page, double* values) const;
    bool GetCalcCoefficients(int32_t page, TArray<double>& values) const;
    bool GetCalcTempPolyOrder(int32_t page, int32_t& order) const;
    bool GetCalcTempCoefficients(int32_t page, double* values) const;
    bool GetCalcTempCoefficients(int32_t page, TArray<double>& values) const;

    /// The overrides, and whether they are valid.
    bool GetUsedPolyOrder(int32_t page, int32_t& order) const;
    bool GetUsedCoefficients(int32_t page, double* values, bool* valid = nullptr) const;
    bool GetUsedCoefficients(int32_t page, int32_t& order, double* values, bool* valid = nullptr) const;
    bool GetUsedCoefficients(int32_t page, TArray<double>& values, bool* valid = nullptr) const;
    bool GetUsedCoefficients(int32_t page, int32_t& order, TArray<double>& values, bool* valid = nullptr) const;
    bool GetUsedTempPolyOrder(int32_t page, int32_t& order) const;
    bool GetUsedTempCoefficients(int32_t page, double* values, bool* valid = nullptr) const;
    bool GetUsedTempCoefficients(int32_t page, int32_t& order, double* values, bool* valid = nullptr) const;
    bool GetUsedTempCoefficients(int32_t page, TArray<double>& values, bool* valid = nullptr) const;
    bool GetUsedTempCoefficients(int32_t page, int32_t& order, TArray<double>& values, bool* valid = nullptr) const;

    /// Takes GetNumCoeffsForOrder(order) values.
    bool SetUsedCoefficients(int32_t page, int32_t order, const double* values, bool valid);
    bool SetUsedTempCoefficients(int32_t page, int32_t order, const double* values, bool valid);
    /// The override is valid and takes the place of the calculated polynomial.
    bool GetCoeffsOverridden(int32_t page) const;
    bool GetTempCoeffsOverridden(int32_t page) const;
    /// The calculated polynomial has this order, and no coefficient differs by more than 1e-8.
    bool EqualCoefficients(int32_t page, int32_t order, const double* values) const;
    bool EqualTempCoefficients(int32_t page, int32_t order, const double* values) const;
    /// The fit from radiance to counts, at the page's order or the one given.
    bool GetReverseCoefficients(int32_t page, TArray<double>& out) const;
    bool GetReverseCoefficients(int32_t page, int32_t order, TArray<double>& out) const;
    /// 0 gives 0, -1 and -2 (two special forms) 2, a positive order one more than itself, anything lower 0.
    static int GetNumCoeffsForOrder(int order);

    // The band, in microns -----------------------------------------------------------------------------------------
    /// In use, calculated from the response, and the override; SetUsed writes the override.
    void GetBandpass(double& low, double& high) const;
    void GetCalcBandpass(double& low, double& high) const;
    void GetUsedBandpass(double& low, double& high, bool* valid = nullptr) const;
    void SetUsedBandpass(double low, double high, bool valid);
    bool GetBandpassOverridden() const;
    /// Both ends within 1e-8 of the calculated band.
    bool EqualBandpass(double low, double high) const;

    // Values that are stored only ----------------------------------------------------------------------------------
    /// No calculation looks at these. Those with a page are false, 0 or notSet for a page that does not exist.
    void GetRange(double& value, bool& valid) const;
    void SetRange(double value, bool valid);
    void GetFOV(double& horz, double& vert, bool& valid) const;
    void SetFOV(double horz, double vert, bool valid);
    bool GetTPFact(int32_t page, double& value, bool& valid) const;
    bool SetTPFact(int32_t page, double value, bool valid);
    BACKGROUND_TYPE GetBackgroundType(int32_t page) const;
    bool SetBackgroundType(int32_t page, BACKGROUND_TYPE type);
    double GetBackgroundValue(int32_t page) const;
    bool SetBackgroundValue(int32_t page, double value);
    /// The background value, 0.0 unless the page's background is of type `value`; false for no such page.
    bool GetBackgroundValueEx(int32_t page, double& value) const;
    /// The value to subtract from every pixel of a picture, 0.0 where there is none: what the form above gives.
    double GetBackgroundValueEx(int32_t page) const;
    /// While off, a change leaves the lookup tables and the radiance-to-temperature fits as they are.
    bool getAutoLookupUpdate() const;
    void setAutoLookupUpdate(bool automatic);

    /// Rebuilds a page's lookup table and its radiance-to-temperature polynomial; page -1 means all.
    void UpdateCalPageLookup(int32_t page);

    /// The page's record, for reading; null out of range.
    const CAL_PAGE* GetPage(int32_t page) const;

    /// What a calibration holds; known to the library alone.
    struct Document;

private:
    friend class RCalXml;

    CAL_PAGE* page(int32_t index) const;
    CAL_POINT* point(int32_t pageIndex, int32_t index) const;
    RESPONCE* response(int32_t index) const;
    CTagArray* tags(int32_t page) const;

    /// Re-runs what depends on a change. `page` and `index` (of a point or response) say where it was; the result is
    /// the index behind the sorting of points.
    int32_t propagate(RCalChange change, int32_t page = -1, int32_t index = -1);
    bool rebuildAfterLoad();
    bool saveBinary(IFile& file);

    template <class Step>
    void onPages(int32_t page, Step step);

    // The steps of propagation; -1 stands for all pages, or all points of a page.
    void UpdateCalPoint(int32_t page, int32_t point, bool refit);
    void UpdateCalPage(int32_t page);
    void UpdateCalPageCoeffs(int32_t page);
    void UpdateCalPageTempCoeffs(int32_t page);
    void UpdateCalPageRange(int32_t page);
    int32_t SortCalPoints(int32_t page, int32_t point);
    void SetupTophat(bool update);
    void AdjustSpectralResponse(bool update);
    void AdjustModtran(bool update);
    void AdjustAdditionalSpectralResponse(int32_t index, bool update);
    void AdjustAllResponses(bool update);
    void LoadSpectralResponse(bool update);
    void LoadModtran(bool update);
    void LoadAdditionalSpectralResponse(int32_t index, bool update);

    std::unique_ptr<Document> m_document;
};

}  // namespace qv
