// From a line to a handler: cutting it into words and walking down the command tree.
#pragma once

/// Cuts the line into `tokens` in place and runs the command that its first words name. Words are separated
/// by blanks and tabs; one that begins with '#' or ';' starts a comment; more than 20 are ignored. Errors are
/// logged.
void cli_execute_line(char* line);
