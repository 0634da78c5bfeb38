# cmake -DINPUT=page.html -DOUTPUT=source.cpp -P EmbedReport.cmake
file(READ "${INPUT}" bytes HEX)
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${bytes}")
file(WRITE "${OUTPUT}" "#include \"exchange/report/page_template.h\"

namespace {
constexpr unsigned char Bytes[] = {${bytes}};
} // namespace

std::string_view voalgo::ReportTemplate()
{
    return {reinterpret_cast<const char*>(Bytes), sizeof(Bytes)};
}
")
