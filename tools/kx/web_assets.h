// The live view's page, script and style sheet, built into kx from tools/kx/web.
#pragma once

namespace kx {
extern const char kViewHtml[];
extern const char kViewJs[];
extern const char kViewCss[];
}  // namespace kx
