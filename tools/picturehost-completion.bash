# Bash completion for picturehost: commands, options, method and class names
# (from `picturehost help completion`, the same source as its help), and file
# names where a file is expected.
#   source tools/picturehost-completion.bash
_picturehost() {
  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]}
  case $prev in
    --on|--out|-o|--mask|--plugin|--out-dir) COMPREPLY=($(compgen -f -- "$cur")); return ;;
  esac
  if [[ -z ${_picturehost_words:-} ]]; then
    _picturehost_words=$("${COMP_WORDS[0]}" help completion 2>/dev/null)
  fi
  COMPREPLY=($(compgen -W "$_picturehost_words" -- "$cur"))
  [[ ${#COMPREPLY[@]} -eq 0 ]] && COMPREPLY=($(compgen -f -- "$cur"))
}
complete -F _picturehost picturehost build/picturehost
