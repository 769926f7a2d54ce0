// The sound formats of wave devices and recordings. Recording files hold the value in
// one byte; format 0 is the G.726 speech code of every recording.
#pragma once

enum tag_SOUNDFMT : int {
    SOUNDFMT_ADPCM = 0,
    SOUNDFMT_8K_8BIT_MONO = 3,
    SOUNDFMT_8K_8BIT_STEREO = 4,
    SOUNDFMT_8K_16BIT_MONO = 5,
    SOUNDFMT_8K_16BIT_STEREO = 6,
    SOUNDFMT_44K_16BIT_STEREO = 7,
    SOUNDFMT_22K_16BIT_STEREO = 8,
    SOUNDFMT_UNKNOWN = 255,
};
