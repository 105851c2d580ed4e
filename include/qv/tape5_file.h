// CModtranTape5File: the input deck (tape5) of the MODTRAN atmosphere program, a text file of fixed-column cards. Start
// with New(), set what differs from the default run, and Save(). tape5_cards.h looks at a deck field by field.
#pragma once

#include <cstdint>

#include "qv/api.h"
#include "qv/array.h"
#include "qv/file.h"
#include "qv/file_system.h"
#include "qv/shared_ptr.h"
#include "qv/string.h"

namespace qv {

/// One or more runs of MODTRAN 4 (version 3 revision 1), of which one is current: all accessors act on it.
///
/// Members:  129 are exported, each overload counted and a pair as two: 119 public functions, two constructors, the
///           destructor, the assignment, and six private functions. Where the cards of a group repeat, the group has
///           one pair for each card, told apart by its parameters. Every field of RUN that has a place on a card that
///           is written belongs to exactly one pair.
/// Codes:    options are kept as they are set, bad ones too; SaveRun and CheckRun judge them. Letters are legal in
///           either case, and blank where the program takes a blank.
/// Numbers:  a card holds as many decimals as its format prints, which for heights and factors of card 2A+ is none.
/// Text:     bytes as they stand in the deck. Blanks around a text are not kept.
/// Indexes:  runs, levels, regions, surfaces, rows and points count from 0.
/// Failure:  false with LastError() set, and a diagnostic where a file is behind it; the deck stays as it was.
/// Threads:  a deck belongs to one thread at a time.
class QV_API CModtranTape5File {
public:
    /// No list of a run is longer, and no deck has more runs.
    static constexpr uint32_t listLimit = 4096;

    /// Card 4: what is calculated and how it is put out. Unit of the four numbers: FLAGS(1).
    struct OUTPUT {
        double v1 = 2000.0;  ///< First frequency or wavelength.
        double v2 = 3335.0;  ///< Last.
        double dv = 5.0;     ///< Step; half of fwhm is usual.
        double fwhm = 10.0;  ///< Full width of the slit function at half maximum.
        char yflag = 'R';    ///< Plot file: 'T' transmittance, 'R' radiance, blank no plot file.
        char xflag = 'W';    ///< Its abscissa: 'W' cm-1, 'M' microns, 'N' nanometres.
        CStringMB dlimit;    ///< Separates the runs in it; at most 8 bytes.
        char flags[7] = {' ', ' ', ' ', ' ', ' ', ' ', ' '};
        ///< (1) unit: 'W' or blank cm-1, 'M' microns, 'N' nanometres. (2) slit: '1' or 'T' or blank triangle, '2' 'R'
        ///< rectangle, '3' 'G' Gaussian, '4' 'S' sinc, '5' 'C' sinc squared, '6' 'H' Hamming, '7' 'U' user. (3) fwhm
        ///< is 'A' or blank absolute, 'R' percent. (4) 'A' degrades all components. (5) 'S' saves what is not
        ///< degraded. (6) 'R' uses what was saved. (7) flux file: 'T' lines of 80 columns, 'F' long lines.
        int32_t mlflx = 0;  ///< Levels in the flux file. Read; the written card has no place for it.
    };

    /// Card 2A: clouds. Below their range the values stand for the model's own (-9 in all).
    struct CLOUDS {
        double cthik = -9.0;   ///< Vertical thickness [km].
        double calt = -9.0;    ///< Base above ground [km]; 0 is on the ground.
        double cext = -9.0;    ///< Vertical extinction [1/km] at cwavln; of cirrus at 0.55 microns.
        double cwavln = -9.0;  ///< Reference wavelength of cext [microns], 0.2 to 200.
        double ccolwd = -9.0;  ///< Column of water droplets [km g/m3].
        double ccolip = -9.0;  ///< Column of ice particles [km g/m3].
        double chumid = -9.0;  ///< Relative humidity in the cloud [%], up to 105.
        double asymwd = -9.0;  ///< Asymmetry factor of droplets, inside -1 to 1.
        double asymip = -9.0;  ///< Asymmetry factor of ice particles.
    };

    /// Cards 2C1 to 2C3: one level of the user's profile.
    struct LEVEL {
        double zm = 0.0;        ///< Altitude [km]; for model 8 the program derives it.
        double p = 0.0;         ///< Pressure, in the unit jchar[0].
        double t = 0.0;         ///< Temperature, jchar[1].
        double wmol[12] = {};   ///< H2O, CO2, O3, N2O, CO, CH4, O2, NO, SO2, NO2, NH3, HNO3; jchar[2] to jchar[13].
        double wmolx[13] = {};  ///< CFC-11, -12, -13, -14, -22, -113, -114, -115, ClONO2, HNO4, CHCl2F, CCl4, N2O5.
        char jchar[14] = {' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' '};
        char jcharx = ' ';             ///< Unit of all of wmolx.
        double ahaze[4] = {};          ///< Extinction at 0.55 microns [1/km]; the first alone with ird2 of 1.
        double eqlwcz = 0.0;           ///< Liquid water [g/m3], used when ahaze is 0.
        double rratz = 0.0;            ///< Rain [mm/h].
        int32_t aerosolModelType = 0;  ///< What aerosolModel is a code of: 0 IHAZE, 1 ICLD, 2 IVULCN.
        int32_t aerosolModel = 0;      ///< Written in the column of its type, with 0 in the other two.
        int32_t isea1 = 0;             ///< Season, as iseasn.
        int32_t ichr = 0;              ///< 1: boundary between adjacent regions of the user's aerosols.
    };

    /// Card 2D2: one point of a region's optical constants.
    struct SPECTRUM {
        double varspc = 0.0;  ///< Wavelength [microns].
        double extc = 0.0;    ///< Extinction, 1 at 0.55 microns.
        double absc = 0.0;    ///< Absorption, on the same scale.
        double asym = 0.0;    ///< Asymmetry factor.
    };

    /// Cards 2D1 and 2D2: one of the four aerosol regions.
    struct REGION {
        double awccon = 0.0;       ///< Extinction to liquid water [km g/m3].
        CStringMB title;           ///< At most 72 bytes.
        TArray<SPECTRUM> spectra;  ///< Empty: default data. 47 points on the program's grid, or with USS 2 and more.
    };

    /// Card 2E1: one altitude of a cloud.
    struct CLOUD_BOUNDARY {
        double zcld = 0.0;    ///< Above ground [km], ascending.
        double cld = 0.0;     ///< Water droplets [g/m3].
        double cldice = 0.0;  ///< Ice particles [g/m3].
        double rr = 0.0;      ///< Rain [mm/h].
    };

    /// Card 2E2: one wavelength of a cloud. Index 0 water droplets, 1 ice particles.
    struct CLOUD_SPECTRUM {
        double wavlen = 0.0;  ///< [microns], ascending.
        double extc[2] = {};  ///< Extinction [m3/(km g)]; below 0 the model's.
        double absc[2] = {};  ///< Absorption; from -1 to 0 the albedo of single scattering, minus 1.
        double asym[2] = {};  ///< Asymmetry factor.
    };

    /// Card 4B3: the parameters of a reflectance model at one wavelength.
    struct BRDF {
        double wvsurf = 0.0;  ///< [microns].
        double parameters[5] = {};
    };

    /// Cards 4B or 4L2: one surface, the target's or the one around it.
    struct SURFACE {
        int32_t brdf = 2;     ///< 2 Walthall, 51 Walthall(a), 11 sine-Walthall, 52 sine-Walthall(a), 4 Hapke, 5 Rahman,
                              ///< 6 Roujean, 10 Pinty-Verstraete, 12 Ross-Li.
        double surfzn = 0.0;  ///< Zenith angle of the surface normal [degrees]; the program takes 0 alone.
        double surfaz = 0.0;  ///< Its azimuth [degrees].
        TArray<BRDF> rows = TArray<BRDF>(1);  ///< One row: the same at all wavelengths.
        CStringMB csalb = "1";                ///< Number or name of a curve of albedo; at most 80 bytes.
    };

    /// One run: every value of its cards, by its published name. The values are those of the default run: mid-latitude
    /// summer, thermal radiance from 3 to 5 microns along a slant path that climbs from the ground to 1 km.
    struct RUN {
        // Card 1
        char modtrn = 'T';    ///< 'T' 'M' blank MODTRAN band model, 'C' 'K' correlated k, 'F' 'L' LOWTRAN.
        char speed = ' ';     ///< Correlated k: 'S' or blank slow, 'M' or '1' medium.
        int32_t model = 2;    ///< 0 one altitude, 1 tropical, 2 3 mid-latitude summer and winter, 4 5 sub-arctic summer
                              ///< and winter, 6 US standard 1976, 7 user, 8 user by pressure.
        int32_t itype = 2;    ///< Path: 1 horizontal, 2 between two altitudes, 3 to space or ground.
        int32_t iemsct = 1;   ///< 0 transmittance, 1 thermal radiance, 2 with sun or moon, 3 solar irradiance.
        int32_t imult = 0;    ///< Multiple scattering: 0 none, 1 as seen from H1, -1 from H2.
        int32_t m[6] = {};    ///< Model (0 to 6) of temperature and pressure, H2O, O3, CH4, N2O, CO.
        int32_t mdef = 0;     ///< Other gases: 0, 1 default, 2 the user gives the heavy species.
        int32_t im = 0;       ///< 1: the user's atmosphere follows; 0: that read last is used again.
        int32_t noprnt = 0;   ///< 1 least output, 0 normal, -1 and -2 more.
        double tptemp = 0.0;  ///< Temperature at the first boundary [K]; 0: that of the air.
        int32_t surface = 0;  ///< 0 albedo, 1 BRDF (cards 4B), 2 LAMBER (cards 4L).
        double albedo = 0.0;  ///< 0 to 1, or minus the number of a curve of albedo.
        // Card 1A
        char dis = 'F';           ///< 'T' DISORT, 'S' Isaacs scaled to it, 'F' or blank Isaacs.
        char disazm = 'F';        ///< 'T': azimuth dependence with DISORT.
        int32_t nstr = 8;         ///< Streams of DISORT: 2, 4, 8 or 16.
        char lsun = 'F';          ///< 'T': solar irradiance of 1 cm-1 from a file.
        int32_t isun = 0;         ///< Width of the triangle that smooths it [cm-1].
        double co2mx = 365.0;     ///< CO2 [ppmv]; 0: 330.
        char h2oUnit = ' ';       ///< Water column: 'g' g/cm2, 'a' atm-cm, blank a factor.
        double h2o = 0.0;         ///< 0: the model's column.
        char h2oUnlimited = ' ';  ///< '+': relative humidity may pass 100 %.
        char o3Unit = ' ';        ///< Ozone column, likewise.
        double o3 = 0.0;
        char lsunfl = 'F';    ///< 'T': card 1A1 names the solar file; '1' to '4' a built-in one.
        char lbmnam = 'F';    ///< 'T': card 1A2 names the band model file.
        char lfltnm = 'F';    ///< 'T': card 1A3 names the filter file.
        char h2oaer = 'F';    ///< 'T': aerosols follow the scaled water column.
        char ldatdr = ' ';    ///< 'T': card 1A4 names the data folder. Read; the written card has no place for it.
        double solcon = 0.0;  ///< Above 0 solar constant [W/m2]; below 0 minus a factor; 0 as it is.
        CStringMB sunfl2;     ///< Card 1A1: '1' to '4' or a file; at most 80 bytes, as the next three.
        CStringMB bmname;     ///< Card 1A2.
        CStringMB filtnm;     ///< Card 1A3.
        CStringMB datdir;     ///< Card 1A4.
        // Card 2
        CStringMB aplus;      ///< "A+": card 2A+ follows.
        int32_t ihaze = 1;    ///< -1 none but clouds, 0 none, 1 2 rural 23 and 5 km, 3 navy maritime, 4 maritime, 5
                              ///< urban, 6 tropospheric, 7 user, 8 9 advective and radiative fog, 10 desert.
        char cnovam = ' ';    ///< 'N': NOVAM.
        int32_t iseasn = 0;   ///< 0 by the model, 1 spring and summer, 2 autumn and winter.
        CStringMB aruss;      ///< "USS": the user's aerosol spectra have wavelengths of their own.
        int32_t ivulcn = 0;   ///< Stratospheric aerosol, 0 to 8.
        int32_t icstl = 0;    ///< Air mass for ihaze 3, 1 open ocean to 10 continental; 0: 3.
        int32_t icld = 0;     ///< 0 none, 1 to 5 clouds, 6 to 10 rain, 11 user, 18 19 cirrus.
        int32_t ivsa = 0;     ///< 1: Army vertical structure algorithm, card 2B.
        double vis = 0.0;     ///< Range of sight [km]; below 0 minus the optical depth; 0 by ihaze.
        double wss = 0.0;     ///< Wind now [m/s].
        double whh = 0.0;     ///< Wind, mean of 24 hours [m/s].
        double rainrt = 0.0;  ///< Rain [mm/h].
        double gndalt = 0.0;  ///< Altitude of the ground [km], below 6.
        // Card 2A+: aerosols 1 to 4
        double zaer1[4] = {};  ///< New base [km].
        double zaer2[4] = {};  ///< New top [km]; below the base the layer is moved only.
        double scale[4] = {};  ///< Factor; 0 counts as 1.
        // Cards 2A and 2B
        CLOUDS clouds;
        double zcvsa = 0.0;   ///< Ceiling [km]; 0 unknown, below 0 none.
        double ztvsa = 0.0;   ///< Thickness of cloud or fog [km]; 0: 0.2.
        double zinvsa = 0.0;  ///< Height of the inversion [km]; 0: 2, below 0 none.
        // Cards 2C
        int32_t ird1 = 0;      ///< 1: minor gases, card 2C2 (and 2C2X with mdef 2).
        int32_t ird2 = 0;      ///< Card 2C3: 1 one aerosol, 2 four.
        CStringMB hmodel;      ///< Title, at most 65 bytes, of which the program keeps columns 16 to 35.
        double ree = 0.0;      ///< Radius of the Earth [km], model 8. Read; the written card has no place for it.
        TArray<LEVEL> levels;  ///< ML levels, upwards.
        // Cards 2D and 2E
        REGION regions[4];
        int32_t ncralt = -9;                ///< Code on the card while `boundaries` is empty; below 3.
        TArray<CLOUD_BOUNDARY> boundaries;  ///< None or 3 to 16.
        int32_t ncrspc = -9;  ///< Code while `cloudSpectra` is empty: 1 the three texts, below 1 the model's.
        TArray<CLOUD_SPECTRUM> cloudSpectra;  ///< None or 2 and more.
        CStringMB cfile;                      ///< Cloud data file.
        CStringMB cldtyp;                     ///< Its type of water cloud.
        CStringMB cirtyp;                     ///< Its type of ice cloud.
        // Cards 3
        double h1 = 0.0;      ///< Altitude of the observer [km].
        double h2 = 1.0;      ///< Final altitude, or tangent height [km].
        double angle = 60.0;  ///< Zenith angle at H1 [degrees]; of sun or moon when iemsct is 3.
        double range = 0.0;   ///< Length of the path [km].
        double beta = 0.0;    ///< Angle at the Earth's centre [degrees].
        double ro = 0.0;      ///< Radius of the Earth [km]; 0 by the model.
        int32_t lenn = 0;     ///< 0 short path, 1 long path through the tangent height.
        double phi = 0.0;     ///< Zenith angle at H2 [degrees].
        int32_t iparm = 0;    ///< What parm means: 0, 1, 2, 10, 11, 12.
        int32_t iph = 2;      ///< Phase function: 0 Henyey-Greenstein, 1 user, 2 Mie.
        int32_t iday = 0;     ///< Day of the year; 0 mean distance.
        int32_t isourc = 0;   ///< 0 sun, 1 moon.
        double parm[4] = {};  ///< By iparm: latitudes and longitudes west, or azimuth and zenith angle [degrees].
        double time = 0.0;    ///< Greenwich time [h].
        double psipo = 0.0;   ///< Azimuth of the path [degrees east of north].
        double anglem = 0.0;  ///< Phase of the moon [degrees], 0 full, 180 new.
        double g = 0.0;       ///< Asymmetry factor for iph 0. Read; the written card has no place for it.
        TArray<double> phaseAngles;       ///< Angles of the user's phase functions [degrees], at most 50.
        TArray<double> phaseWavelengths;  ///< [microns]; empty: the same at all.
        TArray<double> phaseValues;  ///< [1/sr]: aerosols 1 to 4, of each the angles, of each the wavelengths (or one).
        // Card 4
        OUTPUT output;
        double aatemp = 0.0;  ///< Temperature of the ground around the target [K]; 0 that of the target.
        CStringMB salbfl = "DATA/spec_alb.dat";  ///< File with curves of albedo; at most 80 bytes.
        TArray<SURFACE> surfaces =
            TArray<SURFACE>(1);  ///< With `surface` 1 or 2: the target's, and that of the ground around it.
        // Card 5
        int32_t irpt = 0;  ///< How the next run is given: 0 there is none, 1 or -1 in full, 3 or -3 by the cards 3, 4A
                           ///< and later, 4 or -4 by the cards 4, 4A and later. What is not given stays as it is.
    };

    /// Units of a level's values, for ABUnits2char.
    enum class ABUNITS : int32_t {
        Default,  ///< The value as 'A' has it, or where it is 0 that of the model chosen by DataType.
        Tropical,
        MidLatitudeSummer,
        MidLatitudeWinter,
        SubArcticSummer,
        SubArcticWinter,
        USStandard,
        Millibar,
        Atmospheres,
        Torr,  // pressure
        Kelvin,
        Celsius,  // temperature
        PPMV,
        MoleculesPerCm3,
        GramsPerKilogram,
        GramsPerM3,
        PartialMillibar,  // gases
        DewPointKelvin,
        DewPointCelsius,
        RelativeHumidity  // water
    };

    /// No runs.
    CModtranTape5File();
    CModtranTape5File(const CModtranTape5File& other);
    CModtranTape5File& operator=(const CModtranTape5File& other);
    ~CModtranTape5File();

    // Run control ------------------------------------------------------------------------------------------------
    // Runs that are added and removed keep the repeat flags a chain: the run in front of an added one gets flag 1
    // where it had 0, and the run that becomes the last gets 0.

    /// One default run, current.
    void New();
    /// No runs, no error.
    void Destroy();
    /// Appends a default run, or `run`, and makes it current.
    bool AddRun();
    bool AddRun(const RUN& run);
    /// Appends a copy of the run at `index`, given in full, and makes it current.
    bool CopyRun(int32_t index);
    /// The run behind it becomes current when the current one is removed, or the last.
    bool RemoveRun(int32_t index);
    /// The current run gets the values of the default run; its repeat flag stays.
    bool ResetRun();
    /// Index of the current run, -1 when none is.
    int32_t CurrentRun() const;
    bool UseRun(int32_t index);
    bool RunExists(int32_t index) const;
    int32_t nRuns() const;
    static RUN DefaultRun();
    bool GetRun(int32_t index, RUN& run) const;
    bool SetRun(int32_t index, const RUN& run);
    /// Text of the last failure, "No Error" before one.
    CString LastError() const;

    // Files ------------------------------------------------------------------------------------------------------

    /// Replaces the deck by that of the file; its first run is current. Reads the published columns and those that
    /// Save writes, numbers by the rules of Fortran (docs/formats/atmosphere_deck.md), and decks of MODTRAN 5 as far as
    /// they ask for nothing that MODTRAN 4 has not.
    bool Load(IFileSystem* fs, const char16_t* path);
    bool Load(const char16_t* path);
    bool Load(TSharedPtr<IFile> file);
    /// Checks all runs, then writes the file: a deck that is refused leaves no file, or the old one. Where writing
    /// itself fails no file is left.
    bool Save(IFileSystem* fs, const char16_t* path) const;
    bool Save(const char16_t* path) const;
    bool Save(TSharedPtr<IFile> file) const;
    /// Reads one run at the file's position, to behind its card 5, appends it and makes it current. It is read as what
    /// the repeat flag of the run in front says, or in full where there is none or its flag is 0.
    bool LoadRun(TSharedPtr<IFile> file);
    /// Writes the cards of a run, of the current one or that at `index`, at the file's position: of one that the run in
    /// front repeats by a flag of 3 or 4 only those that the flag calls for.
    bool SaveRun(TSharedPtr<IFile> file) const;
    bool SaveRun(TSharedPtr<IFile> file, int32_t index) const;
    /// The checks of SaveRun alone: option codes, then whether every value fits its columns, and whether what a
    /// repeating run does not write is as in the run in front.
    bool CheckRun(int32_t index) const;

    /// Card 5: see RUN::irpt.
    bool GetRepeatFlag(int32_t& irpt) const;
    bool SetRepeatFlag(int32_t irpt);

    // Main options -----------------------------------------------------------------------------------------------
    // Units and legal values of the parameters stand at the fields of RUN that have their names.

    /// MODEL and IM of card 1; CO2MX, H2OSTR and O3STR of card 1A.
    bool GetAtmosphereModel(int32_t& model, int32_t& im, double& co2mx, char& h2oUnit, double& h2o, char& h2oUnlimited,
                            char& o3Unit, double& o3) const;
    bool SetAtmosphereModel(int32_t model, int32_t im, double co2mx, char h2oUnit, double h2o, char h2oUnlimited,
                            char o3Unit, double o3);
    /// ITYPE of card 1.
    bool GetLOSType(int32_t& itype) const;
    bool SetLOSType(int32_t itype);
    /// IPARM of card 3A1: how the place of sun or moon is given.
    bool GetSLLOSType(int32_t& iparm) const;
    bool SetSLLOSType(int32_t iparm);
    /// IEMSCT of card 1.
    bool GetExecutionMode(int32_t& iemsct) const;
    bool SetExecutionMode(int32_t iemsct);
    /// IMULT of card 1; DIS, DISAZM and NSTR of card 1A.
    bool GetMultipleScattering(int32_t& imult, char& dis, char& disazm, int32_t& nstr) const;
    bool SetMultipleScattering(int32_t imult, char dis, char disazm, int32_t nstr);
    /// M1 to M6 and MDEF of card 1.
    bool GetDataType(int32_t (&m)[6], int32_t& mdef) const;
    bool SetDataType(const int32_t (&m)[6], int32_t mdef);
    /// TPTEMP of card 1 [K].
    bool GetTempAtFirstBoundary(double& tptemp) const;
    bool SetTempAtFirstBoundary(double tptemp);
    /// SPEED of card 1.
    bool GetCorrelationKSpeed(char& speed) const;
    bool SetCorrelationKSpeed(char speed);
    /// MODTRN of card 1.
    bool GetBandModel(char& modtrn) const;
    bool SetBandModel(char modtrn);
    /// LBMNAM of card 1A, card 1A2.
    bool GetBandModelFile(char& lbmnam, CStringMB& bmname) const;
    bool SetBandModelFile(char lbmnam, const CStringMB& bmname);
    /// LFLTNM of card 1A, card 1A3.
    bool GetInstrumentFilterFile(char& lfltnm, CStringMB& filtnm) const;
    bool SetInstrumentFilterFile(char lfltnm, const CStringMB& filtnm);
    /// LSUN, ISUN, LSUNFL and SOLCON of card 1A, card 1A1.
    bool GetSolarIrradiance(char& lsun, int32_t& isun, char& lsunfl, CStringMB& sunfl2, double& solcon) const;
    bool SetSolarIrradiance(char lsun, int32_t isun, char lsunfl, const CStringMB& sunfl2, double solcon);
    /// NOPRNT of card 1, card 4.
    bool GetOutputInfo(int32_t& noprnt, OUTPUT& output) const;
    bool SetOutputInfo(int32_t noprnt, const OUTPUT& output);

    // Surface ----------------------------------------------------------------------------------------------------

    /// SURREF of card 1 in its two parts, AATEMP of card 4A [K].
    bool GetSurfaceReflectance(int32_t& surface, double& albedo, double& aatemp) const;
    bool SetSurfaceReflectance(int32_t surface, double albedo, double aatemp);
    /// NSURF of card 4A and card 4L1: how many surfaces there are (1 or 2), and the file of the albedo curves.
    bool GetSurfaceReflectance(uint32_t& nsurf, CStringMB& salbfl) const;
    bool SetSurfaceReflectance(uint32_t nsurf, const CStringMB& salbfl);
    /// Cards 4B1 and 4B2, or 4L2, of one surface; `nwvsrf` is how many rows it has.
    bool GetSurfaceReflectance(uint32_t index, int32_t& brdf, uint32_t& nwvsrf, double& surfzn, double& surfaz,
                               CStringMB& csalb) const;
    bool SetSurfaceReflectance(uint32_t index, int32_t brdf, uint32_t nwvsrf, double surfzn, double surfaz,
                               const CStringMB& csalb);
    /// Card 4B3: one row of a surface. Models take 3 or 4 parameters; Ross-Li wants 2 and 1 behind its three.
    bool GetSurfaceReflectance(uint32_t index, uint32_t row, BRDF& brdf) const;
    bool SetSurfaceReflectance(uint32_t index, uint32_t row, const BRDF& brdf);
    /// SURREF as card 1 has it: 7 columns of a number ("%7.2f"), "BRDF" or "LAMBER". "" for another kind.
    static CStringMB FormatSurfaceReflectance(int32_t surface, double albedo);
    /// H2OSTR or O3STR, 10 columns: "a %8.3f" for 'a', "g %8.3f" for 'g', "%10.5f" for a factor, blank for 0. With '+'
    /// for `unlimited` that stands in front, in the place of a blank. "" for another unit.
    static CStringMB FormatVerticalColumnType(char unit, double column, char unlimited = ' ');

    // Aerosols ---------------------------------------------------------------------------------------------------

    /// CNOVAM, ISEASN, ARUSS, ICSTL, WSS, WHH and GNDALT of card 2; H2OAER of card 1A.
    bool GetAerosolInfo(char& cnovam, int32_t& iseasn, CStringMB& aruss, int32_t& icstl, double& wss, double& whh,
                        double& gndalt, char& h2oaer) const;
    bool SetAerosolInfo(char cnovam, int32_t iseasn, const CStringMB& aruss, int32_t icstl, double wss, double whh,
                        double gndalt, char h2oaer);
    /// APLUS of card 2: "A+" or "".
    bool GetAerosolAdjustments(CStringMB& aplus) const;
    bool SetAerosolAdjustments(const CStringMB& aplus);
    /// Card 2A+: base [km], top [km] and factor of aerosol `index`, 0 to 3. Written as whole numbers.
    bool GetAerosolAdjustments(uint32_t index, double& zaer1, double& zaer2, double& scale) const;
    bool SetAerosolAdjustments(uint32_t index, double zaer1, double zaer2, double scale);
    /// IHAZE and VIS of card 2.
    bool GetAerosolAttenuation(int32_t& ihaze, double& vis) const;
    bool SetAerosolAttenuation(int32_t ihaze, double vis);
    /// Card 2C3 of a level for ird2 of 1.
    bool GetAerosolProfile(uint32_t level, double& ahaze, double& eqlwcz, double& rratz, int32_t& aerosolModelType,
                           int32_t& aerosolModel, int32_t& isea1, int32_t& ichr) const;
    bool SetAerosolProfile(uint32_t level, double ahaze, double eqlwcz, double rratz, int32_t aerosolModelType,
                           int32_t aerosolModel, int32_t isea1, int32_t ichr);
    /// The same for ird2 of 2.
    bool GetAerosolProfile(uint32_t level, double (&ahaze)[4], double& rratz) const;
    bool SetAerosolProfile(uint32_t level, const double (&ahaze)[4], double rratz);
    /// Card 2D1 of region 0 to 3, and how many points card 2D2 has. New points are 0; 47 new ones of a region that had
    /// none stand on the program's grid of wavelengths.
    bool GetAerosolRegion(uint32_t region, uint32_t& points, double& awccon, CStringMB& title) const;
    bool SetAerosolRegion(uint32_t region, uint32_t points, double awccon, const CStringMB& title);
    /// Card 2D2: one point of a region.
    bool GetAerosolRegionSpectra(uint32_t region, uint32_t point, double& varspc, double& extc, double& absc,
                                 double& asym) const;
    bool SetAerosolRegionSpectra(uint32_t region, uint32_t point, double varspc, double extc, double absc, double asym);
    /// IPH of card 3A1.
    bool GetPhaseFunction(int32_t& iph) const;
    bool SetPhaseFunction(int32_t iph);
    /// Cards 3B1, 3C1 and 3C2: angles [degrees], whole numbers when there are wavelengths [microns]. All values are 0
    /// after a change of either count.
    bool GetPhaseFunction(TArray<double>& angles, TArray<double>& wavelengths) const;
    bool SetPhaseFunction(const TArray<double>& angles, const TArray<double>& wavelengths);
    /// Cards 3B2 and 3C3 to 3C6 [1/sr]: the values of the four aerosols at an angle and a wavelength (0 without any).
    bool GetPhaseFunction(uint32_t angle, uint32_t wavelength, double (&f)[4]) const;
    bool SetPhaseFunction(uint32_t angle, uint32_t wavelength, const double (&f)[4]);
    /// IVULCN of card 2.
    bool GetVolcanoInfo(int32_t& ivulcn) const;
    bool SetVolcanoInfo(int32_t ivulcn);

    // Clouds -----------------------------------------------------------------------------------------------------

    /// Card 2A: all of it for icld 1 to 10, the first three for cirrus.
    bool GetClouds(CLOUDS& clouds) const;
    bool SetClouds(const CLOUDS& clouds);
    /// NCRALT and NCRSPC of card 2A: how many altitudes (from 3) and wavelengths (from 2) follow, or a lower code.
    bool GetCloudProfile(int32_t& ncralt, int32_t& ncrspc) const;
    bool SetCloudProfile(int32_t ncralt, int32_t ncrspc);
    /// Card 2E1: one altitude.
    bool GetCloudProfile(uint32_t index, CLOUD_BOUNDARY& boundary) const;
    bool SetCloudProfile(uint32_t index, const CLOUD_BOUNDARY& boundary);
    /// Card 2E2: one wavelength.
    bool GetCloudProfile(uint32_t index, CLOUD_SPECTRUM& spectrum) const;
    bool SetCloudProfile(uint32_t index, const CLOUD_SPECTRUM& spectrum);
    /// Card 2E2 in its other form, for ncrspc of 1.
    bool GetCloudProfile(CStringMB& cfile, CStringMB& cldtyp, CStringMB& cirtyp) const;
    bool SetCloudProfile(const CStringMB& cfile, const CStringMB& cldtyp, const CStringMB& cirtyp);
    /// ICLD and RAINRT of card 2.
    bool GetCloudRainModel(int32_t& icld, double& rainrt) const;
    bool SetCloudRainModel(int32_t icld, double rainrt);

    // Profile ----------------------------------------------------------------------------------------------------

    /// Card 2C, written for models 0, 7 and 8 with im of 1. New levels are 0 with blank units.
    bool GetUserDefinedModel(uint32_t& ml, int32_t& ird1, int32_t& ird2, CStringMB& hmodel) const;
    bool SetUserDefinedModel(uint32_t ml, int32_t ird1, int32_t ird2, const CStringMB& hmodel);
    /// Card 2C1 of a level.
    bool GetLayerBoundary(uint32_t level, double& zm, double& p, double& t, double& h2o, double& co2, double& o3) const;
    bool SetLayerBoundary(uint32_t level, double zm, double p, double t, double h2o, double co2, double o3);
    /// Card 2C2 of a level: N2O, CO, CH4, O2, NO, SO2, NO2, NH3, HNO3.
    bool GetLayerBoundary(uint32_t level, double (&wmol)[9]) const;
    bool SetLayerBoundary(uint32_t level, const double (&wmol)[9]);
    /// Card 2C2X of a level, in the order of LEVEL::wmolx.
    bool GetLayerBoundary(uint32_t level, double (&wmolx)[13]) const;
    bool SetLayerBoundary(uint32_t level, const double (&wmolx)[13]);
    /// Units of card 2C1: JCHAR(1) to JCHAR(14), then JCHARX.
    bool GetABUnits(uint32_t level, char (&units)[15]) const;
    bool SetABUnits(uint32_t level, const char (&units)[15]);
    /// The letter of a unit; '?' for a value that is none.
    static char ABUnits2char(ABUNITS unit);
    /// The unit of a letter, either case, at `position` of GetABUnits; false for a letter that has no meaning there.
    static bool ABUnits2char(char letter, uint32_t position, ABUNITS& unit);
    /// IVSA of card 2, card 2B.
    bool GetAVSA(int32_t& ivsa, double& zcvsa, double& ztvsa, double& zinvsa) const;
    bool SetAVSA(int32_t ivsa, double zcvsa, double ztvsa, double zinvsa);

    // Geometry ---------------------------------------------------------------------------------------------------

    /// Card 3; H1, H2, ANGLE and RO also on its other form, for iemsct of 3.
    bool GetGeometry(double& h1, double& h2, double& angle, double& range, double& beta, double& ro, double& phi) const;
    bool SetGeometry(double h1, double h2, double angle, double range, double beta, double ro, double phi);
    /// LENN of card 3.
    bool GetLOSPath(int32_t& lenn) const;
    bool SetLOSPath(int32_t lenn);
    /// IDAY and ISOURC of card 3A1, card 3A2; IDAY, ISOURC and ANGLEM also on the other form of card 3.
    bool GetSolarLunarGeometry(int32_t& iday, int32_t& isourc, double (&parm)[4], double& time, double& psipo,
                               double& anglem) const;
    bool SetSolarLunarGeometry(int32_t iday, int32_t isourc, const double (&parm)[4], double time, double psipo,
                               double anglem);

private:
    /// The current run; null, with the error, when none is.
    const RUN* current() const;
    RUN* current() { return const_cast<RUN*>(static_cast<const CModtranTape5File*>(this)->current()); }
    template <class F>
    bool read(F take) const {
        const RUN* run = current();
        if (run != nullptr) take(*run);
        return run != nullptr;
    }
    template <class F>
    bool change(F put) {
        RUN* run = current();
        if (run != nullptr) put(*run);
        return run != nullptr;
    }
    bool inRange(uint32_t index, uint32_t count, const char16_t* what) const;
    bool fail(const CString& text) const;
    bool exists(int32_t index) const;
    bool render(int32_t index, CStringMB& bytes) const;
    bool renderAll(CStringMB& bytes) const;

    TArray<RUN> m_runs;
    int32_t m_current = -1;
    mutable CString m_lastError;
};

}  // namespace qv
