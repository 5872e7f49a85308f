# Writes the files of a report's page into a C++ source, for the build:
#
#     cmake -DOUTPUT=FILE.cpp -DFOLDER=tools/browser/report -P cmake/EmbedText.cmake
#
# As numbers: literals of that length are more than some compilers take.
set(source "// Made by cmake/EmbedText.cmake of the files in tools/browser/report.\n#include \"tools/browser/report/Parts.h\"\n\nnamespace Browser::ReportParts\n{\n")
foreach(part "Body;body.html" "Style;page.css" "Script;page.js")
  list(GET part 0 name)
  list(GET part 1 file)
  file(READ "${FOLDER}/${file}" bytes HEX)
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," bytes "${bytes}")
  string(REGEX REPLACE "('[^']+','[^']+','[^']+','[^']+','[^']+','[^']+','[^']+','[^']+',)" "\\1\n" bytes "${bytes}")
  string(APPEND source
    "std::string_view ${name}() noexcept\n{\n    static constexpr char text[] = {\n${bytes}'\\0'};\n"
    "    return {text, sizeof(text) - 1};\n}\n\n")
endforeach()
string(APPEND source "} // namespace Browser::ReportParts\n")
file(WRITE "${OUTPUT}" "${source}")
