// Rewrites picture records into a standard ITU-T H.263 elementary stream without
// decoding them: the records' coefficient layer is H.263's, so every coefficient event
// is carried over as it stands, and only the picture and macroblock layers are written
// anew in H.263's syntax. One object per stream, owned by its caller and used from one
// thread at a time.
#pragma once

#include "platform/Export.h"
#include "platform/WinTypes.h"

#include <memory>

enum tag_H263RESULT : int {
    H263_OK = 1,
    H263_BAD_RECORD = 0,        // the record doesn't parse to its end, or has a size no decoder takes
    H263_NO_PICTURE = -1,       // a P picture before any I picture: nothing it could refer to
    H263_NOT_EXPRESSIBLE = -2,  // a quantiser outside 1..31, an intra DC of 0, an escape level of
                                // 0 or -128: values H.263 forbids, so the picture can't be carried
};

class ZNDVR_API CH263Writer {
public:
    CH263Writer();
    ~CH263Writer();
    CH263Writer(const CH263Writer&) = delete;
    CH263Writer& operator=(const CH263Writer&) = delete;

    // Allocates the output for the longest picture; FALSE when that fails.
    BOOL Create();

    // Rewrites one picture record. dwTimeStamp, in milliseconds, gives the picture's
    // temporal reference on H.263's 29.97 Hz clock. On H263_OK the H.263 picture, padded
    // to whole bytes, stands in GetPicture() until the next call.
    tag_H263RESULT Rewrite(const BYTE* pIn, int nInLen, DWORD dwTimeStamp);
    const BYTE* GetPicture() const;
    int GetPictureLength() const;

private:
    struct tag_BITCURSOR;

    tag_H263RESULT RewritePicture(tag_BITCURSOR& in, DWORD dwTimeStamp);
    tag_H263RESULT RewriteIntraMacroblock(tag_BITCURSOR& in, BOOL bInPPicture);
    tag_H263RESULT RewriteInterMacroblock(tag_BITCURSOR& in);
    tag_H263RESULT RewriteBlockEvents(tag_BITCURSOR& in, int nFirstPosition);
    void WritePictureHeader(BOOL bPPicture, int nQuant, DWORD dwTimeStamp);
    void WriteCustomFormat();
    void PutBits(unsigned nValue, int nBits);

    std::unique_ptr<BYTE[]> m_pOut;
    int m_nOutBits = 0;
    BOOL m_bOverflow = FALSE;
    // What one picture leaves for the next.
    struct tag_STREAMSTATE {
        int nWidth = 0;           // coded size of the last I picture
        int nHeight = 0;
        int nLastQuant = 1;       // PQUANT of a P picture that codes nothing
        DWORD dwFirstStamp = 0;   // temporal references count from the first picture
        BOOL bStarted = FALSE;
    };
    tag_STREAMSTATE m_State;
};
