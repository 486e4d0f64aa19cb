// Host overlays drawn with Direct2D/DirectWrite into the open drawing pass on
// the back buffer: polylines, text and hatched masking regions.
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "xop/D3D11Renderer.h"
#include "xop/XopDebug.h"

namespace xop {

using Microsoft::WRL::ComPtr;

namespace {

constexpr int kMaxPoints = 32;

D2D1_COLOR_F ToColor(uint32_t color) {
    return D2D1::ColorF((color & 0xFF) / 255.0f, ((color >> 8) & 0xFF) / 255.0f, ((color >> 16) & 0xFF) / 255.0f,
                        1.0f);
}

// The one brush of a drawing call; on failure the message with `func` and
// `line`, and null.
ComPtr<ID2D1SolidColorBrush> CreateBrush(ID2D1RenderTarget* target, uint32_t color, const char* func, int line) {
    ComPtr<ID2D1SolidColorBrush> brush;
    const HRESULT hr = target->CreateSolidColorBrush(ToColor(color), brush.GetAddressOf());
    if (FAILED(hr)) {
        DebugPrint("[%s:%d] ID3D11Device::CreateSolidColorBrush failed, %x  \n", func, line, (unsigned)hr);
        return nullptr;
    }
    return brush;
}

float StrokeWidth(int lineWidth) { return lineWidth < 1 ? 2.0f : static_cast<float>(lineWidth); }

// x where the edge (x0, y0)-(x1, y1) meets the horizontal line at y; 0 when
// it does not (horizontal edges never do). Ends are included.
float EdgeCrossing(int x0, int y0, int x1, int y1, float y) {
    if (y0 == y1) return 0.0f;
    const float fx0 = static_cast<float>(x0), fy0 = static_cast<float>(y0);
    const float fx1 = static_cast<float>(x1), fy1 = static_cast<float>(y1);
    if (x0 != x1) {
        const float x = (fx1 - fx0) * (y - fy0) / (fy1 - fy0) + fx0;
        const float lo = fx0 < fx1 ? fx0 : fx1, hi = fx0 < fx1 ? fx1 : fx0;
        return x >= lo && x <= hi ? x : 0.0f;
    }
    const float lo = fy0 < fy1 ? fy0 : fy1, hi = fy0 < fy1 ? fy1 : fy0;
    return y >= lo && y <= hi ? fx0 : 0.0f;
}

bool IsUnsetSlot(const D2D1_POINT_2F& p) { return std::fabs(p.x) < FLT_MIN && std::fabs(p.y) < FLT_MIN; }

// The hatch scan lines worth drawing on a target of `size`: from the first
// one at start + k * step whose stroke band can reach the target, up to
// `end`. When more of them would reach it than four per pixel row (a huge
// region, stroke or a tiny spacing), they are spread out evenly to four per
// row, so a call never walks millions of scan lines; ordinary hatches are
// unchanged.
struct HatchScan {
    float first, step, end;
};

HatchScan PlanHatchScan(float start, float maxY, float step, float width, D2D1_SIZE_F size) {
    const double reach = width / 2.0 + 1.0;
    const double lo = -reach, hi = std::min<double>(maxY, size.height + reach);
    double first = start;
    if (first < lo) first += std::ceil((lo - first) / step) * step;
    const double budget = 4.0 * (size.height + 2.0);
    double s = step;
    if ((hi - first) / s > budget) s = (hi - first) / budget;
    return {static_cast<float>(first), static_cast<float>(s), static_cast<float>(hi)};
}

// One hatch line from a to b (same y, a.x < b.x), with the parts that lie
// off the target cut away first so that huge coordinates or strokes reach
// Direct2D as the band the target actually shows.
void DrawHatchLine(ID2D1RenderTarget* target, D2D1_POINT_2F a, D2D1_POINT_2F b, ID2D1Brush* brush, float width,
                   D2D1_SIZE_F size) {
    const float right = size.width + 1.0f, bottom = size.height + 1.0f;
    if (a.x > right) return;
    if (b.x > right) b.x = right;
    const float half = width / 2.0f;
    if (a.y - half < -1.0f || a.y + half > bottom) {
        const float top = std::max(a.y - half, -1.0f), low = std::min(a.y + half, bottom);
        if (!(low > top)) return;
        a.y = b.y = (top + low) / 2.0f;
        width = low - top;
    }
    target->DrawLine(a, b, brush, width, nullptr);
}

}  // namespace

int Utf8ToAnsi(const char* utf8, int utf8Length, char* ansi, int ansiSize) {
    if (!utf8 || !ansi || ansiSize <= 0) return -1;
    wchar_t wide[1440];
    const int n = MultiByteToWideChar(CP_UTF8, 0, utf8, utf8Length, wide, 1440);
    if (n > 0) {
        memset(ansi, 0, static_cast<size_t>(ansiSize));
        return WideCharToMultiByte(CP_ACP, 0, wide, n, ansi, ansiSize, nullptr, nullptr);
    }
    const DWORD error = GetLastError();
    const std::string data = utf8Length >= 0 ? std::string(utf8, static_cast<size_t>(utf8Length)) : std::string(utf8);
    DebugPrint("[%s:%d] [code_convert] convert charset UTF-8 to ANSI failed! error(%d),data(%s) \n", "Utf8ToAnsi",
               1137, static_cast<int>(error), data.c_str());
    return -1;
}

int32_t D3D11Renderer::InnerOnDrawLine(const OverlayParam* param) {
    if (!m_d2dRenderTarget || !param) return -1;
    int n = param->pointCount > kMaxPoints ? kMaxPoints : param->pointCount;
    D2D1_POINT_2F points[kMaxPoints + 1] = {};
    for (int i = 0; i < n; ++i) {
        points[i] = D2D1::Point2F(static_cast<float>(param->points[i].x), static_cast<float>(param->points[i].y));
    }
    if (param->closed == 1) {
        if (param->pointCount >= 0 && param->pointCount <= kMaxPoints) points[param->pointCount] = points[0];
        ++n;
    }
    const float width = StrokeWidth(param->lineWidth);
    const ComPtr<ID2D1SolidColorBrush> brush =
        CreateBrush(m_d2dRenderTarget.Get(), param->color, "xop::D3D11Renderer::InnerOnDrawLine", 1105);
    if (!brush) return 0;
    for (int i = 0; i + 1 < n; ++i) m_d2dRenderTarget->DrawLine(points[i], points[i + 1], brush.Get(), width, nullptr);
    return 0;
}

int32_t D3D11Renderer::InnerOnDrawText(OverlayParam* param) {
    static const char* const kFunc = "xop::D3D11Renderer::InnerOnDrawText";
    if (!m_dwriteFactory || !m_d2dRenderTarget || !param) return -1;
    if (param->text[0] == '\0') return 0;

    const wchar_t* family = param->fontType == 1 ? L"\u601D\u6E90\u9ED1\u4F53" : L"Times New Roman";
    ComPtr<IDWriteTextFormat> format;
    HRESULT hr = m_dwriteFactory->CreateTextFormat(family, nullptr, DWRITE_FONT_WEIGHT_NORMAL, DWRITE_FONT_STYLE_NORMAL,
                                                   DWRITE_FONT_STRETCH_NORMAL, static_cast<float>(param->lineWidth),
                                                   L"zh-cn", format.GetAddressOf());
    if (FAILED(hr)) {
        DebugPrint("[%s:%d] ID3D11Device::CreateTextFormat failed, %x  \n", kFunc, 1162, (unsigned)hr);
        return 0;
    }
    const D2D1_RECT_F box = D2D1::RectF(static_cast<float>(param->points[0].x), static_cast<float>(param->points[0].y),
                                        static_cast<float>(param->points[1].x), static_cast<float>(param->points[1].y));
    const int textSize = static_cast<int>(sizeof(param->text));
    if (param->charset == 2) {
        char ansi[128];
        const int n = Utf8ToAnsi(param->text, static_cast<int>(strnlen(param->text, textSize)), ansi, sizeof(ansi));
        if (n > 0) {
            memset(param->text, 0, sizeof(param->text));
            memcpy(param->text, ansi, static_cast<size_t>(n < textSize ? n : textSize));
        }
    }
    const ComPtr<ID2D1SolidColorBrush> brush = CreateBrush(m_d2dRenderTarget.Get(), param->color, kFunc, 1188);
    if (!brush) return 0;
    const int length = static_cast<int>(strnlen(param->text, textSize));
    const int wideLength = MultiByteToWideChar(CP_ACP, 0, param->text, length, nullptr, 0);
    std::vector<wchar_t> buffer(static_cast<size_t>(wideLength > 0 ? wideLength : 0) + 1, L'\0');
    MultiByteToWideChar(CP_ACP, 0, param->text, length, buffer.data(), wideLength);
    const std::wstring wide(buffer.data());
    m_d2dRenderTarget->DrawText(wide.c_str(), static_cast<UINT32>(wide.size()), format.Get(), box, brush.Get(),
                                D2D1_DRAW_TEXT_OPTIONS_NONE, DWRITE_MEASURING_MODE_NATURAL);
    return 0;
}

int32_t D3D11Renderer::InnerOnDrawBlurry(const OverlayParam* param) {
    if (!m_d2dRenderTarget || !param) return -1;
    const ComPtr<ID2D1SolidColorBrush> brush =
        CreateBrush(m_d2dRenderTarget.Get(), param->color, "xop::D3D11Renderer::InnerOnDrawBlurry", 1237);
    if (!brush) return 0;
    const float width = StrokeWidth(param->lineWidth);
    // The record holds 32 points; more would read past it.
    const int count = param->pointCount > kMaxPoints ? kMaxPoints : param->pointCount;
    const OverlayPoint* pts = param->points;

    float maxY = 0.0f, minY = 0.0f;  // 0.0 counts as unset for minY
    for (int i = 0; i < count; ++i) {
        const float py = static_cast<float>(pts[i].y);
        if (py > maxY) maxY = py;
        if (minY == 0.0f || minY > py) minY = py;
    }
    float step = param->spacing == 0.0f ? 10.0f : param->spacing;
    if (!(step > 0.0f)) step = 10.0f;  // a negative or NaN spacing would never end the scan
    const D2D1_SIZE_F size = m_d2dRenderTarget->GetSize();
    const HatchScan scan = PlanHatchScan(minY + 0.5f, maxY, step, width, size);

    D2D1_POINT_2F slots[kMaxPoints] = {};  // kept between scan lines
    for (float y = scan.first; scan.end > y; y += scan.step) {
        int k = 0;
        for (int j = 0; j < count; ++j) {
            const OverlayPoint& a = pts[j];
            const OverlayPoint& b = pts[(j + 1) % count];
            slots[k].y = y;
            const float x = EdgeCrossing(a.x, a.y, b.x, b.y, y);
            if (x > FLT_MIN) slots[k++].x = x;
        }
        k = (k + 1) & ~1;
        if (k >= 2) {
            for (int pass = 0; pass < k - 1; ++pass) {
                for (int i = 0; i + 1 < k - pass; ++i) {
                    if (slots[i].x > slots[i + 1].x) std::swap(slots[i], slots[i + 1]);
                }
            }
            for (int i = 0; i + 1 < k; i += 2) {
                if (IsUnsetSlot(slots[i]) || IsUnsetSlot(slots[i + 1])) continue;
                if (slots[i].y == slots[i + 1].y) {
                    DrawHatchLine(m_d2dRenderTarget.Get(), slots[i], slots[i + 1], brush.Get(), width, size);
                }
            }
        }
        if (y + scan.step == y) break;  // spacing too small to advance
    }
    return 0;
}

int32_t D3D11Renderer::GetSwapChainSize(uint32_t* width, uint32_t* height) {
    DXGI_SWAP_CHAIN_DESC desc = {};
    if (!m_swapChain || !width || !height || FAILED(m_swapChain->GetDesc(&desc))) {
        DebugPrint("[%s:%d]  D3D11Renderer::GetSwapChainSize failed, nullptr == swap_chain_ \n",
                   "xop::D3D11Renderer::GetSwapChainSize", 1329);
        return -1;
    }
    *width = desc.BufferDesc.Width;
    *height = desc.BufferDesc.Height;
    return 0;
}

}  // namespace xop
