/* Runs commands: one with a time-out, one whose output is wanted, and one with arguments that a shell must
 * not read. */
#include "util/sys.h"
#include "util/lines.h"
#include "util/zel_error.h"

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>

int main(void)
{
    char program[] = "printf", format[] = "%s\\n", text[] = "a b; $HOME";
    char *arguments[] = {program, format, text, NULL};
    char **lines, *line;
    int status, i;

    zel_error_init_default(6);
    zel_error_set_mt_id();
    signal(SIGALRM, SIG_IGN); /* the alarm of a quick command is not cancelled */

    sys_set_timeout(1);
    printf("sleep gave %d\n", sys_exec("sleep %d", 10));
    printf("ended by the time-out: %d\n", ended_on_timeout);
    sys_set_timeout(0);

    lines = sys_get_lines(&status, "printf '1\\n2\\n'; exit 3");
    for (i = 0; i < lines_count(lines); i++)
        printf("line %s\n", lines[i]);
    lines_free(&lines);

    line = argv_to_shell(arguments);
    printf("%s gave %d\n", line, sys_exec("%s", line));
    free(line);
    return 0;
}
