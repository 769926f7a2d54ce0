// A second coder of ITU-T G.726 at 24 kbit/s, written apart from the library's codec
// and in another form: each block of the Recommendation's diagrams (FMULT, ACCUM, MIX,
// SUBTA, LOG, SUBTB, QUAN, ADDA, ANTILOG, ADDB, ADDC, FILTD, LIMB, FILTE, FILTA, FILTB,
// SUBTC, FILTC, TRIGA, TRANS, UPA1, UPA2, LIMC, LIMD, UPB, TRIGB, FLOATA, FLOATB, TONE)
// as a function of unsigned bit fields of the widths the Recommendation gives, with
// explicit masks. It anchors the library's arithmetic: a wrong constant there is not
// confirmed here.
#pragma once

#include <cstdint>

class CG726BlockCoder {
public:
    // One 16-bit linear sample in (the coder takes its top 14 bits), the 3-bit code out.
    unsigned Encode(std::int16_t sample)
    {
        Predict();
        unsigned SL = static_cast<std::uint16_t>(sample) >> 2;         // 14 bits
        unsigned SLX = (SL >> 13) ? SL + 49152 : SL;                  // to 16 bits
        unsigned D = (SLX + 65536 - SignExtend15(m_SE)) & 0xFFFF;     // SUBTA
        // LOG: base-2 logarithm of the magnitude, 4-bit exponent and 7-bit fraction.
        unsigned DS = D >> 15;
        unsigned DQM = DS ? (65536 - D) & 32767 : D;
        unsigned EXP = Bits(DQM >> 1);
        unsigned DL = (EXP << 7) + (((DQM << 7) >> EXP) & 127);
        unsigned DLN = (DL + 4096 - (m_Y >> 2)) & 4095;                // SUBTB
        // QUAN, 24 kbit/s: decision levels 0.06, 1.70 and 2.58 of log2|D| - Y.
        unsigned IM = 0;
        if (DLN < 2048)
            IM = DLN >= 331 ? 3 : (DLN >= 218 ? 2 : (DLN >= 8 ? 1 : 0));
        unsigned I = DS ? 7 - IM : (IM == 0 ? 7 : IM);
        Adapt(I);
        return I;
    }

    // One 3-bit code in, the reconstructed signal SR (16-bit two's complement) out.
    std::int16_t Decode(unsigned I)
    {
        Predict();
        return Adapt(I & 7);
    }

    // The delayed variables, each in the width the Recommendation gives it; open so
    // that a test can start both coders from the same state and compare where they end.
    unsigned m_A1 = 0, m_A2 = 0;
    unsigned m_B[6] = {};
    unsigned m_DQ[6] = {32, 32, 32, 32, 32, 32};
    unsigned m_SR1 = 32, m_SR2 = 32;
    unsigned m_PK1 = 0, m_PK2 = 0;
    unsigned m_YU = 544, m_YL = 34816;
    unsigned m_DMS = 0, m_DML = 0, m_AP = 0, m_TD = 0;

private:
    // FMULT, ACCUM, LIMA and MIX: the signal estimate and the scale factor of a sample.
    void Predict()
    {
        unsigned SEZI = 0;
        for (int n = 0; n < 6; ++n)
            SEZI = (SEZI + Fmult(m_B[n], m_DQ[n])) & 0xFFFF;
        unsigned SEI = (SEZI + Fmult(m_A2, m_SR2) + Fmult(m_A1, m_SR1)) & 0xFFFF;
        m_SEZ = SEZI >> 1; // 15 bits
        m_SE = SEI >> 1;   // 15 bits
        unsigned AL = (m_AP >= 256) ? 64 : m_AP >> 2;
        m_Y = Mix(AL);
    }

    // Everything after the quantizer: reconstruction and the adaptation of the state.
    std::int16_t Adapt(unsigned I)
    {
        unsigned SE = m_SE;
        unsigned SEZ = m_SEZ;
        unsigned Y = m_Y;
        // RECONST: the sign is the top bit; negative codes are one's complements.
        unsigned DQS = I >> 2;
        unsigned IM = DQS ? 7 - I : I;
        unsigned DQL = (kDqln[IM] + (Y >> 2)) & 0xFFF; // ADDA
        unsigned DQ = Antilog(DQL, DQS);
        unsigned DQMAG = DQ & 0x7FFF;
        unsigned DQI = DQS ? (0x10000 - DQMAG) & 0xFFFF : DQMAG;

        unsigned SR = (DQI + SignExtend15(SE)) & 0xFFFF;         // ADDB
        unsigned DQSEZ = (DQI + SignExtend15(SEZ)) & 0xFFFF;     // ADDC
        unsigned PK0 = DQSEZ >> 15;
        bool SIGPK = DQSEZ == 0;

        bool TR = Trans(DQMAG);

        // Scale factor adaptation: FUNCTW, FILTD, LIMB, FILTE.
        unsigned DIF = ((kW[IM] << 5) + 131072 - Y) & 131071;
        unsigned DIFSX = (DIF >> 16) ? (DIF >> 5) + 4096 : DIF >> 5;
        unsigned YUT = (Y + DIFSX) & 8191;
        unsigned YUP = YUT < 544 ? 544 : (YUT > 5120 ? 5120 : YUT);
        DIF = (YUP + ((1048576 - m_YL) >> 6)) & 16383;
        unsigned YLP = (m_YL + ((DIF >> 13) ? DIF + 507904 : DIF)) & 524287;

        // Predictor adaptation: UPA2, LIMC, UPA1, LIMD, UPB.
        unsigned A2P = Limc(Upa2(PK0, SIGPK));
        unsigned A1P = Limd(Upa1(PK0, SIGPK), A2P);
        unsigned BP[6];
        for (int n = 0; n < 6; ++n) {
            unsigned UGB = (DQMAG == 0) ? 0 : ((DQS ^ (m_DQ[n] >> 10)) ? 65408 : 128);
            unsigned ULB = (m_B[n] >> 15) ? (65536 - ((m_B[n] >> 8) + 65280)) & 0xFFFF
                                          : (65536 - (m_B[n] >> 8)) & 0xFFFF;
            BP[n] = (m_B[n] + ((UGB + ULB) & 0xFFFF)) & 0xFFFF;
        }

        unsigned TDP = (A2P >= 32768 && A2P < 53760) ? 1 : 0; // TONE: A2 < -0.71875
        // TRIGB: a transition clears the predictor.
        m_A1 = TR ? 0 : A1P;
        m_A2 = TR ? 0 : A2P;
        for (int n = 0; n < 6; ++n)
            m_B[n] = TR ? 0 : BP[n];

        // Speed control: FUNCTF, FILTA, FILTB, SUBTC, FILTC, TRIGA.
        unsigned FI = kF[IM];
        DIF = ((FI << 9) + 8192 - m_DMS) & 8191;
        m_DMS = (((DIF >> 12) ? (DIF >> 5) + 3840 : DIF >> 5) + m_DMS) & 4095;
        DIF = ((FI << 11) + 32768 - m_DML) & 32767;
        m_DML = (((DIF >> 14) ? (DIF >> 7) + 16128 : DIF >> 7) + m_DML) & 16383;
        unsigned TDR = TR ? 0 : TDP;
        DIF = ((m_DMS << 2) + 32768 - m_DML) & 32767;
        unsigned DIFM = (DIF >> 14) ? (32768 - DIF) & 16383 : DIF;
        unsigned AX = (Y >= 1536 && DIFM < (m_DML >> 3) && TDR == 0) ? 0 : 1;
        DIF = ((AX << 9) + 2048 - m_AP) & 2047;
        unsigned APP = (((DIF >> 10) ? (DIF >> 4) + 896 : DIF >> 4) + m_AP) & 1023;
        m_AP = TR ? 256 : APP;

        // Delays: FLOATA, FLOATB.
        for (int n = 5; n > 0; --n)
            m_DQ[n] = m_DQ[n - 1];
        m_DQ[0] = (DQS << 10) + Float(DQMAG);
        unsigned SRS = SR >> 15;
        m_SR2 = m_SR1;
        m_SR1 = (SRS << 10) + Float(SRS ? (65536 - SR) & 32767 : SR);
        m_PK2 = m_PK1;
        m_PK1 = PK0;
        m_TD = TDR;
        m_YU = YUP;
        m_YL = YLP;
        return static_cast<std::int16_t>(SR);
    }

    // 24 kbit/s tables by magnitude code |I|: log of the reconstructed difference
    // (12-bit two's complement, 2048 for minus infinity), W(I) in sixteenths (12-bit
    // two's complement), F(I).
    static constexpr unsigned kDqln[4] = {2048, 135, 273, 373};
    static constexpr unsigned kW[4] = {4092, 30, 137, 582};
    static constexpr unsigned kF[4] = {0, 1, 2, 7};

    static unsigned Bits(unsigned MAG)
    {
        unsigned EXP = 0;
        while (MAG >> EXP)
            ++EXP;
        return EXP;
    }

    // 11-bit floating form without the sign: 4-bit exponent, 6-bit mantissa.
    static unsigned Float(unsigned MAG)
    {
        unsigned EXP = Bits(MAG);
        unsigned MANT = MAG ? (MAG << 6) >> EXP : 32;
        return (EXP << 6) + MANT;
    }

    static unsigned SignExtend15(unsigned value) { return (value >> 14) ? value + 32768 : value; }

    static unsigned Fmult(unsigned An, unsigned SRn)
    {
        unsigned AnS = An >> 15;
        unsigned AnMAG = AnS ? (16384 - (An >> 2)) & 8191 : An >> 2;
        unsigned AnEXP = Bits(AnMAG);
        unsigned AnMANT = AnMAG ? (AnMAG << 6) >> AnEXP : 32;
        unsigned SRnS = SRn >> 10;
        unsigned SRnEXP = (SRn >> 6) & 15;
        unsigned SRnMANT = SRn & 63;
        unsigned WAnS = SRnS ^ AnS;
        unsigned WAnEXP = SRnEXP + AnEXP;
        unsigned WAnMANT = ((SRnMANT * AnMANT) + 48) >> 4;
        unsigned WAnMAG = WAnEXP <= 26 ? (WAnMANT << 7) >> (26 - WAnEXP)
                                       : ((WAnMANT << 7) << (WAnEXP - 26)) & 32767;
        return WAnS ? (65536 - WAnMAG) & 0xFFFF : WAnMAG;
    }

    unsigned Mix(unsigned AL) const
    {
        unsigned DIF = (m_YU + 16384 - (m_YL >> 6)) & 16383;
        unsigned DIFS = DIF >> 13;
        unsigned DIFM = DIFS ? (16384 - DIF) & 8191 : DIF;
        unsigned PRODM = (DIFM * AL) >> 6;
        unsigned PROD = DIFS ? (16384 - PRODM) & 16383 : PRODM;
        return ((m_YL >> 6) + PROD) & 8191;
    }

    static unsigned Antilog(unsigned DQL, unsigned DQS)
    {
        unsigned DS = DQL >> 11;
        unsigned DEX = (DQL >> 7) & 15;
        unsigned DQT = (DQL & 127) + 128;
        unsigned DQMAG = DS ? 0 : (DQT << 7) >> (14 - DEX);
        return (DQS << 15) + DQMAG;
    }

    bool Trans(unsigned DQMAG) const
    {
        unsigned YLINT = m_YL >> 15;
        unsigned YLFRAC = (m_YL >> 10) & 31;
        unsigned THR2 = YLINT > 9 ? 31 << 10 : (32 + YLFRAC) << YLINT;
        unsigned DQTHR = (THR2 + (THR2 >> 1)) >> 1;
        return m_TD && DQMAG > DQTHR;
    }

    unsigned Upa2(unsigned PK0, bool SIGPK) const
    {
        unsigned PKS1 = PK0 ^ m_PK1;
        unsigned PKS2 = PK0 ^ m_PK2;
        unsigned UGA2A = PKS2 ? 114688 : 16384;
        unsigned FA1;
        if ((m_A1 >> 15) == 0)
            FA1 = m_A1 <= 8191 ? m_A1 << 2 : 8191 << 2;
        else
            FA1 = m_A1 >= 57345 ? (m_A1 << 2) & 131071 : 24577 << 2;
        unsigned FA = PKS1 ? FA1 : (131072 - FA1) & 131071;
        unsigned UGA2B = (UGA2A + FA) & 131071;
        unsigned UGA2 = SIGPK ? 0 : ((UGA2B >> 16) ? (UGA2B >> 7) + 64512 : UGA2B >> 7);
        unsigned ULA2 = (m_A2 >> 15) ? (65536 - ((m_A2 >> 7) + 65024)) & 0xFFFF : (65536 - (m_A2 >> 7)) & 0xFFFF;
        return (m_A2 + ((UGA2 + ULA2) & 0xFFFF)) & 0xFFFF;
    }

    static unsigned Limc(unsigned A2T)
    {
        constexpr unsigned A2UL = 12288;
        constexpr unsigned A2LL = 53248;
        if (A2T >= 32768 && A2T <= A2LL)
            return A2LL;
        if (A2T >= A2UL && A2T <= 32767)
            return A2UL;
        return A2T;
    }

    unsigned Upa1(unsigned PK0, bool SIGPK) const
    {
        unsigned UGA1 = SIGPK ? 0 : ((PK0 ^ m_PK1) ? 65344 : 192);
        unsigned ULA1 = (m_A1 >> 15) ? (65536 - ((m_A1 >> 8) + 65280)) & 0xFFFF : (65536 - (m_A1 >> 8)) & 0xFFFF;
        return (m_A1 + ((UGA1 + ULA1) & 0xFFFF)) & 0xFFFF;
    }

    static unsigned Limd(unsigned A1T, unsigned A2P)
    {
        unsigned A1UL = (15360 + 65536 - A2P) & 0xFFFF;
        unsigned A1LL = (A2P + 65536 - 15360) & 0xFFFF;
        if (A1T >= 32768 && A1T <= A1LL)
            return A1LL;
        if (A1T >= A1UL && A1T <= 32767)
            return A1UL;
        return A1T;
    }

    // Values of the sample in progress.
    unsigned m_SEZ = 0, m_SE = 0, m_Y = 0;
};
