# Completion of aostorage for bash: verbs, options, their words, files, and paths in stores.

# The options of each verb, those with a value with a = at the end. A test compares them with what
# --help lists.
declare -gA _aostorage_options=(
  [create]='--force'
  [put]='--reserve='
  [get]=''
  [cat]=''
  [rm]=''
  [ls]='-l --sort= --durations --json'
  [tree]='--json'
  [info]='--json'
  [mkdir]='-p --parents'
  [mv]='--reserve='
  [cp]='--force --merge --reserve='
  [compact]='--output= --force --drop-hidden'
  [upgrade]='--drop-hidden'
  [import]='--into= --cut --force --reserve='
  [export]='--force'
  [set]='--reserve= --int= --int64= --uint= --double= --string= --size= --rect= --raw='
  [get-entry]='--default= --json --int --int64 --uint --double --string --size --rect --raw'
  [log]='--list --json --reserve='
  [check]='--strict --notes --json'
  [recover]='-o= --output= --force --json'
  [stat]='--top= --json'
  [map]='--svg= --html= --json'
  [dump]='--json'
  [load]='--force'
  [diff]='-q --quiet --no-durations --json'
  [hexdump]='--offset= --length= -a --all --json'
  [blocks]='--json'
)

# The operands of each verb: s a store, p a path in it, f a file, d a directory, c a store, a colon
# and a path.
declare -gA _aostorage_operands=(
  [create]=s [put]=spf [get]=spf [cat]=sp [rm]=sp [ls]=sp [tree]=sp [info]=s [mkdir]=sp [mv]=spp
  [cp]=cc [compact]=s [upgrade]=s [import]=sd [export]=sdp [set]=sp [get-entry]=sp [log]=spf
  [check]=s [recover]=s [stat]=s [map]=s [dump]=sf [load]=sf [diff]=ss [hexdump]=sp [blocks]=sp
)

# _aostorage_words PREFIX WORD...: those words that begin so.
_aostorage_words() {
  local prefix=$1 word
  shift
  for word; do
    [[ $word == "$prefix"* ]] && COMPREPLY+=("$word")
  done
}

# _aostorage_files KIND PREFIX: files and directories (-f), or directories alone (-d).
_aostorage_files() {
  compopt -o filenames 2>/dev/null
  mapfile -t COMPREPLY < <(compgen "$1" -- "$2")
}

# _aostorage_paths STORE PREFIX: streams of the folder that PREFIX leads to. Names that ls has to
# escape are left out.
_aostorage_paths() {
  local store=${1/#\~\//$HOME/} prefix=$2 folder='' line name
  [[ $prefix == */* ]] && folder=${prefix%/*}/
  compopt -o filenames 2>/dev/null
  while IFS= read -r line; do
    name=$folder${line:13}
    [[ $name == *'\'* || $name != "$prefix"* ]] && continue
    [[ $line == d* ]] && name+=/
    COMPREPLY+=("$name")
  done < <("${COMP_WORDS[0]}" ls -l --color=never -- "$store" "$folder" 2>/dev/null)
  if ((${#COMPREPLY[@]} == 1)) && [[ ${COMPREPLY[0]} == */ ]]; then
    compopt -o nospace 2>/dev/null
  fi
}

# _aostorage_value OPTION STORE PREFIX
_aostorage_value() {
  case $1 in
    --color) _aostorage_words "$3" auto always never ;;
    --sort) _aostorage_words "$3" name none slot ;;
    --output | -o | --svg | --html) _aostorage_files -f "$3" ;;
    --into) _aostorage_paths "$2" "$3" ;;
  esac
}

# _aostorage_operand KIND STORE PREFIX
_aostorage_operand() {
  case $1 in
    s | f) _aostorage_files -f "$3" ;;
    d) _aostorage_files -d "$3" ;;
    p) _aostorage_paths "$2" "$3" ;;
  esac
}

# A store and a path with a colon between: bash has taken them apart at it, if a colon breaks words.
_aostorage_colon() {
  local current=$1 before=${COMP_WORDS[COMP_CWORD - 1]}
  if [[ $current == : ]]; then
    _aostorage_paths "$before" ''
  elif [[ $before == : ]]; then
    _aostorage_paths "${COMP_WORDS[COMP_CWORD - 2]}" "$current"
  elif [[ $current == *:* ]]; then
    _aostorage_paths "${current%%:*}" "${current#*:}"
    COMPREPLY=("${COMPREPLY[@]/#/${current%%:*}:}")
  else
    _aostorage_files -f "$current"
    compopt -o nospace 2>/dev/null
  fi
}

_aostorage() {
  COMPREPLY=()
  local current=${COMP_WORDS[COMP_CWORD]//\\/} verb='' option='' word
  local -a operands=()
  local i
  # What stands before the word: the verb, its operands, and an option that waits for its value.
  for ((i = 1; i < COMP_CWORD; ++i)); do
    word=${COMP_WORDS[i]//\\/}
    if [[ $word == = ]]; then
      continue
    elif [[ -n $option ]]; then
      option=''
    elif [[ -z $verb ]]; then
      [[ $word == -* ]] || verb=$word
    elif [[ $word == -?* ]]; then
      [[ " ${_aostorage_options[$verb]-} --color= " == *" $word= "* ]] && option=$word
    else
      operands+=("$word")
    fi
  done
  [[ -n $option && $current == = ]] && current=''

  if [[ -z $verb ]]; then
    _aostorage_words "$current" --help --version "${!_aostorage_options[@]}"
  elif [[ -z ${_aostorage_operands[$verb]-} ]]; then
    return
  elif [[ -n $option ]]; then
    _aostorage_value "$option" "${operands[0]-}" "$current"
  elif [[ $current == -* ]]; then
    local -a options
    read -ra options <<<"${_aostorage_options[$verb]} --color= -h --help"
    _aostorage_words "$current" "${options[@]%=}"
  elif [[ ${_aostorage_operands[$verb]} == c* ]]; then
    _aostorage_colon "$current"
  else
    _aostorage_operand "${_aostorage_operands[$verb]:${#operands[@]}:1}" "${operands[0]-}" "$current"
  fi
}

complete -F _aostorage aostorage
