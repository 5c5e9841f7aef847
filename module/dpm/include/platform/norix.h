/*
 * Contract: the protocol tasks of the routing suite.
 *
 * The library starts them for the host process (norix_protocol_init, norix_imi_cli_init); the suite
 * supplies their entries, NAME_start for every NAME of the list.
 */
#ifndef DPM_PLATFORM_NORIX_H
#define DPM_PLATFORM_NORIX_H

#ifdef __cplusplus
extern "C" {
#endif

/* Name and port number (its meaning is the suite's), in the order in which they are started. */
#define NORIX_PROTOCOLS(ROW)                                                                       \
    ROW(nsm, 7601)                                                                                 \
    ROW(rib, 7662)                                                                                 \
    ROW(ospf, 7604)                                                                                \
    ROW(ospf6, 7606)                                                                               \
    ROW(isis, 7609)                                                                                \
    ROW(bgp, 7605)                                                                                 \
    ROW(mpls, 7673)                                                                                \
    ROW(ldp, 7607)                                                                                 \
    ROW(rsvp, 7608)                                                                                \
    ROW(mrib, 7610)                                                                                \
    ROW(pim, 7611)                                                                                 \
    ROW(rip, 7602)                                                                                 \
    ROW(ripng, 7603)                                                                               \
    ROW(bfd, 7624)                                                                                 \
    ROW(mplsonm, 7675)                                                                             \
    ROW(vlog, -1)

/* All of them, with the suite's command line, which is started apart. */
#define NORIX_TASKS(ROW)                                                                           \
    ROW(imi, 7650)                                                                                 \
    NORIX_PROTOCOLS(ROW)

/* The entry of a protocol's task.  Of the spawn's ten arguments the first is the index of the
 * protocol, the fourth its port number, the fifth its instance name (a pointer, valid for ever);
 * the others are 0. */
#define NORIX_ENTRY(name, port) int name##_start(void);
NORIX_TASKS(NORIX_ENTRY)
#undef NORIX_ENTRY

#ifdef __cplusplus
}
#endif

#endif
