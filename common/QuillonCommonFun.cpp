#include "common/QuillonCommonFun.h"

int IsEqualRectSize(const RECT& a, const RECT& b)
{
    CHECK_UNEQUAL_RETURN(a.left, b.left, 0, "IsEqualRectSize", 57);
    CHECK_UNEQUAL_RETURN(a.top, b.top, 0, "IsEqualRectSize", 58);
    CHECK_UNEQUAL_RETURN(a.right, b.right, 0, "IsEqualRectSize", 59);
    CHECK_UNEQUAL_RETURN(a.bottom, b.bottom, 0, "IsEqualRectSize", 60);
    return 1;
}

int IsRectZero(const RECT& r)
{
    return r.left == 0 && r.top == 0 && r.right == 0 && r.bottom == 0;
}

RECT MakeRectEven(const RECT& r)
{
    return RECT{r.left / 2 * 2, r.top / 2 * 2, r.right / 2 * 2, r.bottom / 2 * 2};
}

int FitRectToAspect(RECT* r, int w, int h)
{
    if (!r) {
        return -1;
    }
    const int width = r->right - r->left;
    const int height = r->bottom - r->top;
    const double ratio = static_cast<double>(w) / h;
    const double rectRatio = static_cast<double>(width) / height;

    if (h > w) {
        if (ratio > rectRatio) {
            const int newHeight = static_cast<int>(width / ratio);
            const int d = (height - newHeight) / 2;
            r->top += d;
            r->bottom -= d;
        } else {
            const int newWidth = static_cast<int>(static_cast<double>(w) / h * height);
            const int d = (width - newWidth) / 2;
            r->left += d;
            r->right -= d;
        }
    } else {
        if (rectRatio >= ratio) {
            const int newWidth = static_cast<int>(height * ratio);
            const int d = (width - newWidth) / 2;
            r->left += d;
            r->right -= d;
        } else {
            const int newHeight = static_cast<int>(static_cast<double>(h) / w * width);
            const int d = (height - newHeight) / 2;
            r->top += d;
            r->bottom -= d;
        }
    }
    return 0;
}
