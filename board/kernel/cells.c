/*
 * Flash cells in a file of the host, seen by the guest as the memory of an inter-VM shared memory device. Whatever was
 * stored is in the file at once, so killing the machine is a power cut and nothing else.
 */
#include <linux/io.h>
#include "vboard.h"

#define IVSHMEM_MEMORY_BAR 2
#define PCI_DEVICE_ID_IVSHMEM 0x1110

int cells_open(struct flash_cells *cells, unsigned int slot, u64 size)
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
    return 0;

disable:
    pci_disable_device(pci);
put:
    pci_dev_put(pci);
    return error;
}

void cells_read(const struct flash_cells *cells, u64 from, void *buffer, size_t length)
{
    const u8 *cell = cells->base + from;
    u8 *out = buffer;

    for (; length >= sizeof(u64); length -= sizeof(u64), cell += sizeof(u64), out += sizeof(u64))
        __builtin_memcpy(out, &(u64){~*(const u64 __attribute__((aligned(1))) *)cell}, sizeof(u64));
    while (length--)
        *out++ = (u8)~*cell++;
}

void cells_program(struct flash_cells *cells, u64 to, const void *buffer, size_t length)
{
    u8 *cell = cells->base + to;
    const u8 *in = buffer;
    u64 word;

    for (; length >= sizeof(u64); length -= sizeof(u64), cell += sizeof(u64), in += sizeof(u64)) {
        __builtin_memcpy(&word, in, sizeof(word));
        /* A hole stays a hole when all-ones are programmed. */
        if (~word)
            *(u64 __attribute__((aligned(1))) *)cell |= ~word;
    }
    for (; length--; cell++, in++)
        if ((u8)~*in)
            *cell |= (u8)~*in;
}

void cells_erase(struct flash_cells *cells, u64 from, u64 length)
{
    u64 *cell = (u64 *)(cells->base + from);
    u64 *end = cell + length / sizeof(u64);

    for (; cell < end; cell++)
        if (*cell)
            *cell = 0;
}
