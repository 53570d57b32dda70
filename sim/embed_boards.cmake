# Writes the built-in boards into a source: -DBOARDS=<list of files> -DOUTPUT=<source>
set(rows "")
foreach(board IN LISTS BOARDS)
  get_filename_component(name ${board} NAME_WE)
  file(READ ${board} text)
  string(APPEND rows "        {\"${name}\", R\"board(${text})board\"},\n")
endforeach()
file(WRITE ${OUTPUT} "#include \"sim/scenario/scenario.h\"

namespace sim {

const std::vector<BuiltInBoard>& built_in_boards() {
    static const std::vector<BuiltInBoard> boards{
${rows}    };
    return boards;
}

}  // namespace sim
")
