# Makes a source file that holds other files: cmake -DOUT=<file> -DROOT=<folder> -DFILES=<a;b> -P embed-files.cmake
# The files are texts; their paths are relative to ROOT. \see refhost/http/PageFiles.h
set(entries "")
foreach(file IN LISTS FILES)
    file(READ "${ROOT}/${file}" text)
    # String literals have a length that compilers must support (65536), so the text is cut into several.
    string(LENGTH "${text}" length)
    set(parts "")
    set(at 0)
    while(at LESS length)
        string(SUBSTRING "${text}" ${at} 8000 part)
        string(APPEND parts "R\"~~~~(${part})~~~~\" ")
        math(EXPR at "${at} + 8000")
    endwhile()
    string(APPEND entries "    {\"${file}\", ${parts}},\n")
endforeach()
file(WRITE "${OUT}" "#include \"refhost/http/PageFiles.h\"

namespace refhost
{
namespace
{

constexpr PageFile files[] = {
${entries}};

}  // namespace

const PageFile* pageFiles(std::size_t& count)
{
    count = sizeof files / sizeof files[0];
    return files;
}

}  // namespace refhost
")
