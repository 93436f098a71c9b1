/* Tests only. The unwinder of the cross compiler looks functions up through a call of another C library; here
 * the same answer comes from the list of loaded objects. */
#define _GNU_SOURCE
#include <link.h>
#include <stdint.h>
#include <string.h>

/* What the unwinder expects to be filled in. */
struct found_object {
    unsigned long long flags;
    void *map_start;
    void *map_end;
    void *link_map;
    void *eh_frame_header;
    unsigned long long reserved[7];
};

struct search {
    uintptr_t pc;
    struct found_object *result;
};

int _dl_find_object(void *pc, struct found_object *result);

static int look_at(struct dl_phdr_info *info, size_t size, void *data)
{
    struct search *search = data;
    uintptr_t start = 0, end = 0;
    void *header = NULL;
    int i;

    (void)size;
    for (i = 0; i < info->dlpi_phnum; i++) {
        const ElfW(Phdr) *segment = &info->dlpi_phdr[i];
        const uintptr_t address = info->dlpi_addr + segment->p_vaddr;
        if (segment->p_type == PT_GNU_EH_FRAME)
            header = (void *)address;
        if (segment->p_type == PT_LOAD && search->pc >= address && search->pc < address + segment->p_memsz) {
            start = address;
            end = address + segment->p_memsz;
        }
    }
    if (!end || !header)
        return 0;
    memset(search->result, 0, sizeof(*search->result));
    search->result->map_start = (void *)start;
    search->result->map_end = (void *)end;
    search->result->eh_frame_header = header;
    return 1;
}

int _dl_find_object(void *pc, struct found_object *result)
{
    struct search search = {(uintptr_t)pc, result};
    return dl_iterate_phdr(look_at, &search) ? 0 : -1;
}
