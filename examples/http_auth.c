/* Answers the challenge of a server: prints the Authorization line for a request. The challenge and the
 * password are the two lines of standard input, so that no list of processes shows them.
 *
 *     printf '%s\n' 'Digest realm="gateway", qop="auth", nonce="1f"' 'secret' |
 *         example_http_auth GET /status admin */

#include "util/http_auth.h"
#include "util/zel_error.h"

#include <stdio.h>
#include <string.h>

static char *read_line(char *line, int size)
{
    if (!fgets(line, size, stdin))
        *line = '\0';
    line[strcspn(line, "\r\n")] = '\0';
    return line;
}

int main(int argc, char **argv)
{
    char challenge[4096], password[256];
    http_auth_request request = {argc > 1 ? argv[1] : NULL, argc > 2 ? argv[2] : NULL, challenge};
    zel_error_init_default(6);
    zel_error_set_mt_id();
    read_line(challenge, sizeof(challenge));
    read_line(password, sizeof(password));
    estream *output = estream_null();
    const int result = http_send_auth_header(output, argc > 3 ? argv[3] : NULL, password, &request);
    if (result == 0)
        printf("%.*s", estream_null_output_len_get(output), estream_null_output_get(output));
    estream_close(output);
    return result != 0;
}
