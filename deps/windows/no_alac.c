/* SPDX-License-Identifier: GPL-2.0-only */
/* libsndfile without ALAC, whose licence (Apache-2.0) does not go together with libpri's: CAF files coded so are not
   opened. */
#include "sfconfig.h"

#include "sndfile.h"
#include "common.h"

int alac_init(SF_PRIVATE *psf, const ALAC_DECODER_INFO *info)
{
    (void) psf;
    (void) info;
    return SFE_UNIMPLEMENTED;
}

/* For the header of a file that is then refused. */
void alac_get_desc_chunk_items(int subformat, uint32_t *fmt_flags, uint32_t *frames_per_packet)
{
    (void) subformat;
    *fmt_flags = 0;
    *frames_per_packet = 0;
}
