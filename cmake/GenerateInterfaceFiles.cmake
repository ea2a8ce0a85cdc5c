# cmake -D program=FILE -D man_template=FILE -D man=FILE -D bash=FILE -D zsh=FILE -D fish=FILE
#       -P GenerateInterfaceFiles.cmake
#
# Writes the manual page and the shell completions of the program from what it says itself: names,
# types and limits of its options from --machine-info, their descriptions from --help.
cmake_policy(VERSION 3.25)

execute_process(COMMAND "${program}" --machine-info OUTPUT_VARIABLE info COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND "${program}" --help OUTPUT_VARIABLE help COMMAND_ERROR_IS_FATAL ANY)

string(JSON version GET "${info}" version)
string(JSON weights GET "${info}" models 0 default_weights)

# The description that --help gives of the option with the long flag FLAG, on one line.
function(read_description flag result)
  # Brackets and semicolons mean something to CMake's lists; none is split here.
  string(REGEX MATCH "\n   [^\n]*${flag}( <[a-z]+>)?\n(     [^\n]+\n)+" block "${help}")
  if(block STREQUAL "")
    message(FATAL_ERROR "--help does not describe ${flag}.")
  endif()
  string(REGEX REPLACE "^\n[^\n]*\n" "" text "${block}")
  string(REGEX REPLACE "[ \n]+" " " text "${text}")
  string(REPLACE "(required) " "" text "${text}")
  string(STRIP "${text}" text)
  set(${result} "${text}" PARENT_SCOPE)
endfunction()

# The value of a member of an option, or nothing.
function(read_member option name result)
  string(JSON value ERROR_VARIABLE missing GET "${option}" ${name})
  if(NOT missing STREQUAL "NOTFOUND")
    set(value "")
  endif()
  set(${result} "${value}" PARENT_SCOPE)
endfunction()

function(escape_for_man text result)
  string(REPLACE "\\" "\\e" text "${text}")
  string(REPLACE "-" "\\-" text "${text}")
  set(${result} "${text}" PARENT_SCOPE)
endfunction()

# What the manual says after the description: the default, and what is required besides.
function(read_limits option result)
  set(limits "")
  read_member("${option}" name name)
  read_member("${option}" type type)
  # From the document's own text: CMake would print -2.8 with 17 digits.
  if(NOT type STREQUAL "boolean" AND
     info MATCHES "\"name\": \"${name}\"[^\n]*\"default\": \"?([^,\" ]+)")
    string(APPEND limits " Default: ${CMAKE_MATCH_1}.")
  endif()
  read_member("${option}" required required)
  if(required STREQUAL "ON")
    string(APPEND limits " Required.")
  endif()
  read_member("${option}" requires requires)
  if(NOT requires STREQUAL "")
    string(REPLACE "_" "-" requires "${requires}")
    string(APPEND limits " Requires --${requires}.")
  endif()
  set(${result} "${limits}" PARENT_SCOPE)
endfunction()

# The lines of --help between two of its headings, without the blank ones.
function(read_section heading next result)
  string(FIND "${help}" " ${heading}:\n" start)
  string(FIND "${help}" " ${next}:\n" end)
  if(start EQUAL -1 OR end LESS start)
    message(FATAL_ERROR "--help has no section ${heading} before ${next}.")
  endif()
  string(LENGTH " ${heading}:\n" heading_length)
  math(EXPR start "${start} + ${heading_length}")
  math(EXPR length "${end} - ${start}")
  string(SUBSTRING "${help}" ${start} ${length} text)
  string(REGEX REPLACE "\n[ \n]*\n" "\n" text "${text}")
  string(STRIP "${text}" text)
  escape_for_man("${text}" text)
  set(${result} "   ${text}" PARENT_SCOPE)
endfunction()

set(man_options "")
set(bash_flags "")
set(bash_paths "")
set(bash_numbers "")
set(zsh_arguments "")
set(fish_lines "")

function(add_to_man)
  escape_for_man("${description}${limits}" text)
  set(tag "")
  foreach(flag IN LISTS flags)
    escape_for_man("${flag}" escaped)
    list(APPEND tag "\\fB${escaped}\\fR")
  endforeach()
  list(JOIN tag ", " tag)
  if(NOT type STREQUAL "boolean")
    string(APPEND tag " \\fI${type}\\fR")
  endif()
  set(man_options "${man_options}.TP\n${tag}\n${text}\n" PARENT_SCOPE)
endfunction()

function(add_to_bash)
  list(JOIN flags " " words)
  list(JOIN flags " | " pattern)
  set(bash_flags "${bash_flags} ${words}" PARENT_SCOPE)
  if(type STREQUAL "path")
    set(bash_paths "${bash_paths} | ${pattern}" PARENT_SCOPE)
  elseif(NOT type STREQUAL "boolean")
    set(bash_numbers "${bash_numbers} | ${pattern}" PARENT_SCOPE)
  endif()
endfunction()

function(add_to_zsh)
  string(REGEX REPLACE "([][:\\])" "\\\\\\1" text "${description}")
  string(REPLACE "'" "'\\''" text "${text}")
  set(value "")
  if(type STREQUAL "path")
    set(value ":file:_files")
  elseif(NOT type STREQUAL "boolean")
    set(value ":${type}: ")
  endif()
  list(JOIN flags " " exclusive)
  foreach(flag IN LISTS flags)
    string(APPEND zsh_arguments " \\\n  '(${exclusive})${flag}[${text}]${value}'")
  endforeach()
  set(zsh_arguments "${zsh_arguments}" PARENT_SCOPE)
endfunction()

function(add_to_fish)
  string(REPLACE "\\" "\\\\" text "${description}")
  string(REPLACE "'" "\\'" text "${text}")
  set(line "complete -c nebulex2")
  foreach(flag IN LISTS flags)
    if(flag MATCHES "^--(.+)")
      string(APPEND line " -l ${CMAKE_MATCH_1}")
    else()
      string(REGEX REPLACE "^-" "" letter "${flag}")
      string(APPEND line " -s ${letter}")
    endif()
  endforeach()
  if(type STREQUAL "path")
    string(APPEND line " -r -F")
  elseif(NOT type STREQUAL "boolean")
    string(APPEND line " -x")
  endif()
  set(fish_lines "${fish_lines}${line} -d '${text}'\n" PARENT_SCOPE)
endfunction()

string(JSON count LENGTH "${info}" options)
math(EXPR last "${count} - 1")
foreach(i RANGE ${last})
  string(JSON option GET "${info}" options ${i})
  string(JSON type GET "${option}" type)
  string(JSON flag_count LENGTH "${option}" flags)
  math(EXPR last_flag "${flag_count} - 1")
  set(flags "")
  foreach(k RANGE ${last_flag})
    string(JSON flag GET "${option}" flags ${k})
    list(APPEND flags "${flag}")
  endforeach()
  read_description("${flag}" description)
  read_limits("${option}" limits)
  add_to_man()
  add_to_bash()
  add_to_zsh()
  add_to_fish()
endforeach()
string(STRIP "${man_options}" options)
read_section(Inputs Outputs inputs)
read_section(Outputs "Package layout" outputs)
string(STRIP "${bash_flags}" bash_flags)
string(REGEX REPLACE "^ \\| " "" bash_paths "${bash_paths}")
string(REGEX REPLACE "^ \\| " "" bash_numbers "${bash_numbers}")

configure_file("${man_template}" "${man}" @ONLY)

file(WRITE "${bash}" "# Completion of nebulex2 for bash, made by the build from nebulex2 --machine-info.
_nebulex2() {
  local current=\${COMP_WORDS[COMP_CWORD]}
  COMPREPLY=()
  case \${COMP_WORDS[COMP_CWORD - 1]} in
    ${bash_paths})
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -f -- \"\$current\")
      return
      ;;
    ${bash_numbers})
      return
      ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W '${bash_flags}' -- \"\$current\")
}
complete -F _nebulex2 nebulex2
")

file(WRITE "${zsh}" "#compdef nebulex2
# Completion of nebulex2 for zsh, made by the build from nebulex2 --machine-info.
_arguments -s${zsh_arguments}
")

file(WRITE "${fish}" "# Completion of nebulex2 for fish, made by the build from nebulex2 --machine-info.
complete -c nebulex2 -f
${fish_lines}")
