// Label requests of the routing suite, and readers of the label tables.
//
// The request records are the suite's and are taken apart by the worker; here they are copied and
// posted.
#include "dpm_l3vpn.h"

#include "dpm_msg.h"
#include "dpm_trace.h"

namespace {

template <std::size_t Bytes> struct request_record { std::uint8_t bytes[Bytes]; };

struct codes {
    std::uint32_t add;
    std::uint32_t del;
};

template <std::size_t Bytes>
int post_label(const void *record, std::uint32_t oper, const codes &code,
               const dpm::send_error &error) {
    if (record == nullptr)
        return dpm::null_parameter(error.function, error.line);
    if (oper != DPM_OPER_ADD && oper != DPM_OPER_DEL)
        return -1;
    dpm::request<request_record<Bytes>> body;
    if (!body)
        return -1;
    std::memcpy(body->bytes, record, Bytes);
    return body.post(oper == DPM_OPER_ADD ? code.add : code.del, error);
}

} // namespace

int dpm_api_set_mpls_ftn_proc(const void *request, std::uint32_t oper) {
    return post_label<DPM_FTN_MSG_BYTES>(request, oper, {DPM_MSG_FTN_ADD, DPM_MSG_FTN_DEL},
                                         DPM_SEND_ERROR("%s %d::send msg err!\r\n"));
}

int dpm_api_set_mpls_ilm_proc(const void *request, std::uint32_t oper) {
    return post_label<DPM_ILM_MSG_BYTES>(request, oper, {DPM_MSG_ILM_ADD, DPM_MSG_ILM_DEL},
                                         DPM_SEND_ERROR("%s %d::send msg err!\r\n"));
}

const dpm_ftn *dpm_api_ftn_entry_first() {
    return dpm::ftns().first();
}

const dpm_ftn *dpm_api_ftn_entry_next(const dpm_ftn *entry) {
    if (entry != nullptr)
        return dpm::ftns().next(*entry);
    (void)dpm::null_parameter();
    return nullptr;
}

const dpm_ilm *dpm_api_ilm_entry_first() {
    return dpm::ilms().first();
}

const dpm_ilm *dpm_api_ilm_entry_next(const dpm_ilm *entry) {
    if (entry != nullptr)
        return dpm::ilms().next(*entry);
    (void)dpm::null_parameter();
    return nullptr;
}
