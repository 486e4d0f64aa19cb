/* The smallest C host: start-up, a decoder and a renderer through the import
 * library, the documented results of bad input, clean-up. Prints one line per
 * check and exits 0 when every result is the documented one. */
#include <stdio.h>
#include <string.h>

#include "QuillonSDK.h"

#if defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L && !defined(QUILLON_STATIC_ASSERT)
#error "the header's layout checks are off in C11"
#endif

static int failures = 0;

static void expect(const char* what, int got, int want)
{
    printf("%-40s %d%s\n", what, got, got == want ? "" : " (unexpected)");
    if (got != want) ++failures;
}

int main(void)
{
    QuillonDecoderHandle decoder;
    QuillonRenderHandle render;
    CreateNeed need;
    CreateNeedExtern needExtern;
    DstRect dst;

    expect("QuillonStartup", QuillonStartup(), QUILLON_OK);

    decoder = QuillonDecoderCreate(NULL, 0);
    expect("QuillonDecoderCreate gives a handle", decoder != NULL, 1);
    memset(&need, 0, sizeof(need));
    memset(&needExtern, 0, sizeof(needExtern));
    need.iWidth = 320;
    need.iHeight = 240;
    need.VideoMode = 99;
    expect("QuillonDecoderInitial, unknown VideoMode", QuillonDecoderInitial(decoder, &need, &needExtern),
           QUILLON_ERR_VIDEO_MODE);
    expect("QuillonDecoderInitial, NULL record", QuillonDecoderInitial(decoder, NULL, &needExtern),
           QUILLON_ERR_NULL_POINTER);
    expect("QuillonDecoderRelease", QuillonDecoderRelease(decoder), QUILLON_OK);

    render = QuillonRenderCreate(NULL, 0);
    expect("QuillonRenderCreate gives a handle", render != NULL, 1);
    memset(&dst, 0, sizeof(dst));
    expect("QuillonRenderConfig, destination rectangle",
           QuillonRenderConfig(render, QUILLON_CMD_SET_DST_RECT, &dst, sizeof(dst)), QUILLON_OK);
    expect("QuillonRenderShowFrame before a device", QuillonRenderShowFrame(render, NULL, 0), QUILLON_ERR_NO_DEVICE);
    expect("QuillonRenderGetDrawInfo, NULL buffer", QuillonRenderGetDrawInfo(render, NULL, 8),
           QUILLON_ERR_NULL_RECORD);
    expect("QuillonRenderRelease", QuillonRenderRelease(render), QUILLON_RENDER_RELEASED);
    expect("QuillonRenderConfig, released handle", QuillonRenderConfig(render, 6, &dst, sizeof(dst)),
           QUILLON_ERR_FAIL);

    expect("QuillonCleanup", QuillonCleanup(), QUILLON_OK);
    printf("host_c: %s\n", failures ? "FAILED" : "OK");
    return failures ? 1 : 0;
}
