/*
 * Flash cells in a file of the host, seen by the guest as the memory of an inter-VM shared memory device. Whatever was
 * stored is in the file at once, so killing the machine is a power cut and nothing else.
 */
#include <linux/io.h>
#include "vboard.h"

#define IVSHMEM_MEMORY_BAR 2
#define PCI_DEVICE_ID_IVSHMEM 0x1110

int cells_open(struct flash_cells *cells, unsigned int slot, u64 size, bool inverted)
{
    struct pci_dev *pci = pci_get_domain_bus_and_slot(0, 0, PCI_DEVFN(slot, 0));
    int error;

    if (!pci)
        return -ENODEV;
    error = -ENODEV;
    if (pci->vendor != PCI_VENDOR_ID_REDHAT_QUMRANET || pci->device != PCI_DEVICE_ID_IVSHMEM)
        goto put;
    if (pci_resource_len(pci, IVSHMEM_MEMORY_BAR) < size)
        goto put;
    error = pci_enable_device(pci);
    if (error)
        goto put;
    cells->base = memremap(pci_resource_start(pci, IVSHMEM_MEMORY_BAR), size, MEMREMAP_WB);
    if (!cells->base) {
        error = -ENOMEM;
        goto disable;
    }
    cells->pci = pci;
    cells->size = size;
    cells->flip = inverted ? ~0U : 0;
    return 0;

disable:
    pci_disable_device(pci);
put:
    pci_dev_put(pci);
    return error;
}

/* Words where both sides are aligned, as they nearly always are: this kernel makes single bytes of an unaligned word. */
static bool both_aligned(const void *cell, const void *buffer)
{
    return !(((unsigned long)cell | (unsigned long)buffer) % sizeof(u32));
}

void cells_read(const struct flash_cells *cells, u64 from, void *buffer, size_t length)
{
    const u8 *cell = cells->base + from;
    u8 *out = buffer;

    if (both_aligned(cell, out))
        for (; length >= sizeof(u32); length -= sizeof(u32), cell += sizeof(u32), out += sizeof(u32))
            *(u32 *)out = *(const u32 *)cell ^ cells->flip;
    while (length--)
        *out++ = *cell++ ^ (u8)cells->flip;
}

/* A hole stays a hole when all-ones are programmed. */
void cells_program(struct flash_cells *cells, u64 to, const void *buffer, size_t length)
{
    u8 *cell = cells->base + to;
    const u8 *in = buffer;

    if (both_aligned(cell, in))
        for (; length >= sizeof(u32); length -= sizeof(u32), cell += sizeof(u32), in += sizeof(u32))
            if (~*(const u32 *)in)
                *(u32 *)cell = ((*(u32 *)cell ^ cells->flip) & *(const u32 *)in) ^ cells->flip;
    for (; length--; cell++, in++)
        if ((u8)~*in)
            *cell = ((*cell ^ (u8)cells->flip) & *in) ^ (u8)cells->flip;
}

void cells_erase(struct flash_cells *cells, u64 from, u64 length)
{
    u32 *cell = (u32 *)(cells->base + from), *end = cell + length / sizeof(u32), erased = ~cells->flip;

    for (; cell < end; cell++)
        if (*cell != erased)
            *cell = erased;
}
