#include "operate_output.h"

#include <string>

#include "json_writer.h"
#include "output.h"
#include "frame/field_text.h"

namespace bmccert::cli {

int Described(uint32_t result, const OperateDesc &desc, bool json) {
    const std::string text(FieldView(desc.szOperateDesc));
    if (result != 0) return ReportFailure(text, result);
    if (!json) return WriteResult(text + '\n');
    JsonWriter w;
    w.BeginObject();
    w.String("operation", text);
    w.EndObject();
    return WriteResult(w.Text() + '\n');
}

} // namespace bmccert::cli
