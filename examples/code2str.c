/* Words for codes and codes for words: a table of one's own, with an old word that is still understood. */
#include "util/code2str.h"

#include <stdio.h>

enum { LED_OFF, LED_ON, LED_BLINK };

static const char *const off_words[] = {"off", "dark", NULL};
static const char *const on_words[] = {"on", "steady", NULL};
static const char *const blink_words[] = {"blink", NULL};

static const code_names led_state[] = {
    {LED_OFF, off_words, 0}, {LED_ON, on_words, 0}, {LED_BLINK, blink_words, 0}, {-1, NULL, 0}};

int main(int argc, char **argv)
{
    const char *word = argc > 1 ? argv[1] : "steady";
    const int code = str2code_ex(led_state, word);
    if (code == -1) {
        printf("%s: not one of", word);
        for (int i = code2str_ex_iter_next(led_state, -1); led_state[i].code != -1;
             i = code2str_ex_iter_next(led_state, i))
            printf(" %s", led_state[i].names[0]);
        printf("\n");
        return 1;
    }
    printf("%s is code %d, stored as %s\n", word, code, code2str_ex(led_state, code));
    printf("404 %s\n", code2str(http_status_str, 404));
    return 0;
}
