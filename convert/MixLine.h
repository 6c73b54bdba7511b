// Line blend kernels: one output line as a weighted mix of two input lines.
// Every lane (byte) of output word i is
//     floor((k * p + (256 - k) * q) / 256)
// with p, q that lane of first[i] and second[i], k the kernel's weight in
// 256ths on the first line (0 to 128; the caller swaps the lines for larger
// weights). The four lanes are treated alike, so the result is the same byte
// for byte whatever the machine's byte order. A word count of 0 or less
// writes nothing, and the weight-0 kernel never reads its first line. Lines
// may start at any byte (frames lie in block slots of any size).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

using MixLineKernel = void(uint32_t* first, uint32_t* second, uint32_t* out, int words);

constexpr int mixLineWeights = 129;

// The kernel of weight K of the path in use (convert/pixelKernels.h).
MixLineKernel* activeMixLine(int k);

// The kernel of weight K, as a named entry point: it runs the version of the
// active path, each version having K built in as a constant.
template <int K>
void MixLine(uint32_t* first, uint32_t* second, uint32_t* out, int words)
{
    static_assert(K >= 0 && K < mixLineWeights, "blend weights run from 0 to 128");
    activeMixLine(K)(first, second, out, words);
}

inline constexpr MixLineKernel& MixLine_000 = MixLine<0>;
inline constexpr MixLineKernel& MixLine_001 = MixLine<1>;
inline constexpr MixLineKernel& MixLine_002 = MixLine<2>;
inline constexpr MixLineKernel& MixLine_003 = MixLine<3>;
inline constexpr MixLineKernel& MixLine_004 = MixLine<4>;
inline constexpr MixLineKernel& MixLine_005 = MixLine<5>;
inline constexpr MixLineKernel& MixLine_006 = MixLine<6>;
inline constexpr MixLineKernel& MixLine_007 = MixLine<7>;
inline constexpr MixLineKernel& MixLine_008 = MixLine<8>;
inline constexpr MixLineKernel& MixLine_009 = MixLine<9>;
inline constexpr MixLineKernel& MixLine_010 = MixLine<10>;
inline constexpr MixLineKernel& MixLine_011 = MixLine<11>;
inline constexpr MixLineKernel& MixLine_012 = MixLine<12>;
inline constexpr MixLineKernel& MixLine_013 = MixLine<13>;
inline constexpr MixLineKernel& MixLine_014 = MixLine<14>;
inline constexpr MixLineKernel& MixLine_015 = MixLine<15>;
inline constexpr MixLineKernel& MixLine_016 = MixLine<16>;
inline constexpr MixLineKernel& MixLine_017 = MixLine<17>;
inline constexpr MixLineKernel& MixLine_018 = MixLine<18>;
inline constexpr MixLineKernel& MixLine_019 = MixLine<19>;
inline constexpr MixLineKernel& MixLine_020 = MixLine<20>;
inline constexpr MixLineKernel& MixLine_021 = MixLine<21>;
inline constexpr MixLineKernel& MixLine_022 = MixLine<22>;
inline constexpr MixLineKernel& MixLine_023 = MixLine<23>;
inline constexpr MixLineKernel& MixLine_024 = MixLine<24>;
inline constexpr MixLineKernel& MixLine_025 = MixLine<25>;
inline constexpr MixLineKernel& MixLine_026 = MixLine<26>;
inline constexpr MixLineKernel& MixLine_027 = MixLine<27>;
inline constexpr MixLineKernel& MixLine_028 = MixLine<28>;
inline constexpr MixLineKernel& MixLine_029 = MixLine<29>;
inline constexpr MixLineKernel& MixLine_030 = MixLine<30>;
inline constexpr MixLineKernel& MixLine_031 = MixLine<31>;
inline constexpr MixLineKernel& MixLine_032 = MixLine<32>;
inline constexpr MixLineKernel& MixLine_033 = MixLine<33>;
inline constexpr MixLineKernel& MixLine_034 = MixLine<34>;
inline constexpr MixLineKernel& MixLine_035 = MixLine<35>;
inline constexpr MixLineKernel& MixLine_036 = MixLine<36>;
inline constexpr MixLineKernel& MixLine_037 = MixLine<37>;
inline constexpr MixLineKernel& MixLine_038 = MixLine<38>;
inline constexpr MixLineKernel& MixLine_039 = MixLine<39>;
inline constexpr MixLineKernel& MixLine_040 = MixLine<40>;
inline constexpr MixLineKernel& MixLine_041 = MixLine<41>;
inline constexpr MixLineKernel& MixLine_042 = MixLine<42>;
inline constexpr MixLineKernel& MixLine_043 = MixLine<43>;
inline constexpr MixLineKernel& MixLine_044 = MixLine<44>;
inline constexpr MixLineKernel& MixLine_045 = MixLine<45>;
inline constexpr MixLineKernel& MixLine_046 = MixLine<46>;
inline constexpr MixLineKernel& MixLine_047 = MixLine<47>;
inline constexpr MixLineKernel& MixLine_048 = MixLine<48>;
inline constexpr MixLineKernel& MixLine_049 = MixLine<49>;
inline constexpr MixLineKernel& MixLine_050 = MixLine<50>;
inline constexpr MixLineKernel& MixLine_051 = MixLine<51>;
inline constexpr MixLineKernel& MixLine_052 = MixLine<52>;
inline constexpr MixLineKernel& MixLine_053 = MixLine<53>;
inline constexpr MixLineKernel& MixLine_054 = MixLine<54>;
inline constexpr MixLineKernel& MixLine_055 = MixLine<55>;
inline constexpr MixLineKernel& MixLine_056 = MixLine<56>;
inline constexpr MixLineKernel& MixLine_057 = MixLine<57>;
inline constexpr MixLineKernel& MixLine_058 = MixLine<58>;
inline constexpr MixLineKernel& MixLine_059 = MixLine<59>;
inline constexpr MixLineKernel& MixLine_060 = MixLine<60>;
inline constexpr MixLineKernel& MixLine_061 = MixLine<61>;
inline constexpr MixLineKernel& MixLine_062 = MixLine<62>;
inline constexpr MixLineKernel& MixLine_063 = MixLine<63>;
inline constexpr MixLineKernel& MixLine_064 = MixLine<64>;
inline constexpr MixLineKernel& MixLine_065 = MixLine<65>;
inline constexpr MixLineKernel& MixLine_066 = MixLine<66>;
inline constexpr MixLineKernel& MixLine_067 = MixLine<67>;
inline constexpr MixLineKernel& MixLine_068 = MixLine<68>;
inline constexpr MixLineKernel& MixLine_069 = MixLine<69>;
inline constexpr MixLineKernel& MixLine_070 = MixLine<70>;
inline constexpr MixLineKernel& MixLine_071 = MixLine<71>;
inline constexpr MixLineKernel& MixLine_072 = MixLine<72>;
inline constexpr MixLineKernel& MixLine_073 = MixLine<73>;
inline constexpr MixLineKernel& MixLine_074 = MixLine<74>;
inline constexpr MixLineKernel& MixLine_075 = MixLine<75>;
inline constexpr MixLineKernel& MixLine_076 = MixLine<76>;
inline constexpr MixLineKernel& MixLine_077 = MixLine<77>;
inline constexpr MixLineKernel& MixLine_078 = MixLine<78>;
inline constexpr MixLineKernel& MixLine_079 = MixLine<79>;
inline constexpr MixLineKernel& MixLine_080 = MixLine<80>;
inline constexpr MixLineKernel& MixLine_081 = MixLine<81>;
inline constexpr MixLineKernel& MixLine_082 = MixLine<82>;
inline constexpr MixLineKernel& MixLine_083 = MixLine<83>;
inline constexpr MixLineKernel& MixLine_084 = MixLine<84>;
inline constexpr MixLineKernel& MixLine_085 = MixLine<85>;
inline constexpr MixLineKernel& MixLine_086 = MixLine<86>;
inline constexpr MixLineKernel& MixLine_087 = MixLine<87>;
inline constexpr MixLineKernel& MixLine_088 = MixLine<88>;
inline constexpr MixLineKernel& MixLine_089 = MixLine<89>;
inline constexpr MixLineKernel& MixLine_090 = MixLine<90>;
inline constexpr MixLineKernel& MixLine_091 = MixLine<91>;
inline constexpr MixLineKernel& MixLine_092 = MixLine<92>;
inline constexpr MixLineKernel& MixLine_093 = MixLine<93>;
inline constexpr MixLineKernel& MixLine_094 = MixLine<94>;
inline constexpr MixLineKernel& MixLine_095 = MixLine<95>;
inline constexpr MixLineKernel& MixLine_096 = MixLine<96>;
inline constexpr MixLineKernel& MixLine_097 = MixLine<97>;
inline constexpr MixLineKernel& MixLine_098 = MixLine<98>;
inline constexpr MixLineKernel& MixLine_099 = MixLine<99>;
inline constexpr MixLineKernel& MixLine_100 = MixLine<100>;
inline constexpr MixLineKernel& MixLine_101 = MixLine<101>;
inline constexpr MixLineKernel& MixLine_102 = MixLine<102>;
inline constexpr MixLineKernel& MixLine_103 = MixLine<103>;
inline constexpr MixLineKernel& MixLine_104 = MixLine<104>;
inline constexpr MixLineKernel& MixLine_105 = MixLine<105>;
inline constexpr MixLineKernel& MixLine_106 = MixLine<106>;
inline constexpr MixLineKernel& MixLine_107 = MixLine<107>;
inline constexpr MixLineKernel& MixLine_108 = MixLine<108>;
inline constexpr MixLineKernel& MixLine_109 = MixLine<109>;
inline constexpr MixLineKernel& MixLine_110 = MixLine<110>;
inline constexpr MixLineKernel& MixLine_111 = MixLine<111>;
inline constexpr MixLineKernel& MixLine_112 = MixLine<112>;
inline constexpr MixLineKernel& MixLine_113 = MixLine<113>;
inline constexpr MixLineKernel& MixLine_114 = MixLine<114>;
inline constexpr MixLineKernel& MixLine_115 = MixLine<115>;
inline constexpr MixLineKernel& MixLine_116 = MixLine<116>;
inline constexpr MixLineKernel& MixLine_117 = MixLine<117>;
inline constexpr MixLineKernel& MixLine_118 = MixLine<118>;
inline constexpr MixLineKernel& MixLine_119 = MixLine<119>;
inline constexpr MixLineKernel& MixLine_120 = MixLine<120>;
inline constexpr MixLineKernel& MixLine_121 = MixLine<121>;
inline constexpr MixLineKernel& MixLine_122 = MixLine<122>;
inline constexpr MixLineKernel& MixLine_123 = MixLine<123>;
inline constexpr MixLineKernel& MixLine_124 = MixLine<124>;
inline constexpr MixLineKernel& MixLine_125 = MixLine<125>;
inline constexpr MixLineKernel& MixLine_126 = MixLine<126>;
inline constexpr MixLineKernel& MixLine_127 = MixLine<127>;
inline constexpr MixLineKernel& MixLine_128 = MixLine<128>;

// MixLineTable[k] is MixLine_kkk; it never changes.
extern const std::array<MixLineKernel*, mixLineWeights> MixLineTable;

// No range check: the only caller keeps k within 0 to 128.
inline MixLineKernel* getMixLine(int k) { return MixLineTable[static_cast<std::size_t>(k)]; }
