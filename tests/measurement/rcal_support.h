// What the tests of calibrations share.
#pragma once

#include <string>

#include "qv/file.h"
#include "qv/rcal_file.h"
#include "support/memory_file.h"

namespace qv::test {

inline bool load(CRCalFile& calibration, const std::string& bytes) { return calibration.Load(memoryFile(bytes), 0); }

inline std::string saved(CRCalFile& calibration) {
    TSharedPtr<IFile> file = CMemFile::Create();
    return calibration.Save(file, CRCalFile::saveXml) ? bytesOf(*file) : "";
}

inline std::string replaced(std::string text, const std::string& from, const std::string& to) {
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    return text;
}

/// Every element and attribute, every word of the enumerations, no value at its default. Lines end in CR LF.
inline const std::string everything = replaced(R"xml(<rcal revision="8">
	<bandpass low="3.05" high="3.85"/>
	<bandpassOverride low="3.1" high="3.8" valid="true"/>
	<range value="1500.5" valid="true"/>
	<fov horz="11" vert="8.8" valid="true"/>
	<spectralResponse file="r&amp;d.txt" start="3" end="3.9" delta="0.1" type="1">3,1|
3.1,1|
3.2,1|
3.3,1|
3.4,1|
3.5,1|
3.6,1|
3.7,1|
3.8,1|
3.9,1</spectralResponse>
	<modtran file="/absent/path.tp7" totTransEnabled="true" pathThrmlEnabled="true">3,0.8|
4,0.9|
3,1.5e-06|
4,2.5e-06</modtran>
	<additonalResponses>
		<additionalResponse file="/absent/lens.txt" enabled="true">2.5,0.95|
6,0.85</additionalResponse>
		<additionalResponse file="" enabled="false"/>
	</additonalResponses>
	<calPages>
		<calPage radiance="false" areaUnits="in(diameter)" distanceUnits="ft">
			<range auto="false" minCounts="900" maxCounts="4100" minRadiance="0.0001" maxRadiance="0.0004" minTemperature="10" maxTemperature="40"/>
			<coeffs order="2" r2="0.99987654321012">1.25e-05,3.5e-08,-1e-13</coeffs>
			<coeffsOverride order="-1" valid="true">0.1,0.2</coeffsOverride>
			<tempCoeffs order="3" r2="0.875">-12,3000.5,-7,0.33333333333333</tempCoeffs>
			<tempCoeffsOverride order="1" valid="true">-20,100000</tempCoeffsOverride>
			<tpfact value="1.02" valid="true"/>
			<background type="file" value="17.5"/>
			<backgroundFiles>
				<backgroundFile xOffset="16" yOffset="4294967295" width="3" height="1" type="3">AQACAP//
</backgroundFile>
				<backgroundFile xOffset="0" yOffset="8" width="640" height="512" type="1"/>
			</backgroundFiles>
			<check counts="1000" radiance="0.00015" temperature="20.5" lookup="20.75"/>
			<calPoints>
				<calPoint enabled="true" temperature="10" emissivity="0.98" area="2.5" distance="30" radiance="0.0001" measurement="900" reflectedRadianceType="constant" reflectedEmissivity="0.5" reflectedTemperature="23" reflectedRadiance="1e-06"/>
				<calPoint enabled="false" temperature="40" emissivity="0.97" area="2.5" distance="30" radiance="0.0004" measurement="4100" reflectedRadianceType="calculate" reflectedEmissivity="0.75" reflectedTemperature="24" reflectedRadiance="0"/>
			</calPoints>
			<lookup start="-10" end="90" delta="2.5" emissivity="0.96">5e-05,-10|
0.0012345678901235,90</lookup>
			<tags>
				<tag name="InstrumentTemperature" value="31.2"/>
				<tag name="Note" value="first&#13;&#10;&lt;light&gt;"/>
			</tags>
		</calPage>
		<calPage radiance="true" areaUnits="cm(squared)" distanceUnits="cm">
			<range auto="true" minCounts="0" maxCounts="0" minRadiance="0" maxRadiance="0" minTemperature="0" maxTemperature="0"/>
			<coeffs order="1" r2="0"/>
			<coeffsOverride order="0" valid="false"/>
			<tempCoeffs order="6" r2="0"/>
			<tempCoeffsOverride order="0" valid="false"/>
			<tpfact value="1" valid="false"/>
			<background type="notSet" value="0"/>
			<backgroundFiles/>
			<check counts="0" radiance="0" temperature="0" lookup="0"/>
			<calPoints/>
			<lookup start="0" end="100" delta="1" emissivity="1"/>
			<tags/>
		</calPage>
	</calPages>
	<tags>
		<tag name="Kamera" value="Wärmebild"/>
	</tags>
</rcal>
)xml",
                                               "\n", "\r\n");

/// Writes a text file and gives its path.
inline CString writeText(const CString& path, const std::string& text) {
    const TSharedPtr<IFile> file = fileSystem().CreateFileW(path.c_str(), 0x28);
    file->WriteBytes(text.data(), static_cast<uint32_t>(text.size()));
    return path;
}

}  // namespace qv::test
