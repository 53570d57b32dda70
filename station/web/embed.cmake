# Writes a source with the files of the page: cmake -D OUTPUT=... -D FILES=a|b -P embed.cmake
set(type_html text/html)
set(type_css text/css)
set(type_js text/javascript)
string(REPLACE "|" ";" FILES "${FILES}")
set(arrays "")
set(rows "")
set(index 0)
foreach(file IN LISTS FILES)
  get_filename_component(name ${file} NAME)
  if(name STREQUAL "chart.min.js")
    set(name chart.js)
  endif()
  string(REGEX REPLACE ".*\\." "" suffix ${name})
  file(READ ${file} bytes HEX)
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${bytes}")
  string(APPEND arrays "const unsigned char file_${index}[] = {${bytes}};\n")
  string(APPEND rows "    {\"${name}\", \"${type_${suffix}}; charset=utf-8\", {reinterpret_cast<const char*>(file_${index}), sizeof file_${index}}},\n")
  math(EXPR index "${index} + 1")
endforeach()
file(WRITE ${OUTPUT} "#include \"station/web/server.h\"\n\nnamespace station::web {\nnamespace {\n\n${arrays}
const Asset kAssets[] = {\n${rows}};\n\n}  // namespace\n
const Asset* find_asset(std::string_view name) {
    for (const Asset& asset : kAssets)
        if (asset.name == name) return &asset;
    return nullptr;
}\n\n}  // namespace station::web\n")
