// Kerberos messages, opened with the service's key from the keytab.
#pragma once

#include <cstring>

#include "der/Der.h"
#include "fakes/DerBytes.h"
#include "fuzz/ForgedLogin.h"
#include "platform/linux/krb5/Krb5Owners.h"
#include "platform/linux/wire/GssToken.h"

// libkrb5 exports them, but its header does not declare them.
extern "C" {
krb5_error_code decode_krb5_ap_req(const krb5_data* i_pData, krb5_ap_req** o_ppRequest);
krb5_error_code encode_krb5_ap_req(const krb5_ap_req* i_pRequest, krb5_data** o_ppData);
krb5_error_code decode_krb5_ap_rep(const krb5_data* i_pData, krb5_ap_rep** o_ppReply);
krb5_error_code decode_krb5_authenticator(const krb5_data* i_pData, krb5_authenticator** o_ppAuthenticator);
krb5_error_code decode_krb5_enc_tkt_part(const krb5_data* i_pData, krb5_enc_tkt_part** o_ppPart);
void krb5_free_enc_tkt_part(krb5_context i_context, krb5_enc_tkt_part* i_pPart);
krb5_error_code encode_krb5_authenticator(const krb5_authenticator* i_pAuthenticator, krb5_data** o_ppData);
void krb5_free_ap_req(krb5_context i_context, krb5_ap_req* i_pRequest);
void krb5_free_ap_rep(krb5_context i_context, krb5_ap_rep* i_pReply);
}

namespace morwen {

inline krb5_context FuzzContext() {
    static krb5_context s_context = [] {
        krb5_context context = nullptr;
        MORWEN_INVARIANT(krb5_init_context(&context) == 0);
        return context;
    }();
    return s_context;
}

inline krb5_data MessageIn(const Bytes& i_token) {
    const auto frame = ReadGssToken(i_token);
    krb5_data data{};
    if (frame) {
        data.data = reinterpret_cast<char*>(const_cast<uint8_t*>(frame->m_message.data()));
        data.length = static_cast<unsigned>(frame->m_message.size());
    }
    return data;
}

inline Bytes BytesIn(const krb5_data& i_data) {
    return Bytes(i_data.data, i_data.data + i_data.length);
}

// What is protected of an AP-REQ or an AP-REP: its ciphertexts. Empty when the token is none.
inline Bytes Ciphertexts(const Bytes& i_token) {
    const krb5_data message = MessageIn(i_token);
    Krb5Owner<krb5_ap_req*, krb5_free_ap_req> request(FuzzContext());
    Krb5Owner<krb5_ap_rep*, krb5_free_ap_rep> reply(FuzzContext());
    Bytes bytes;
    if (message.length != 0 && decode_krb5_ap_req(&message, request.Receive()) == 0) {
        bytes = BytesIn(request->ticket->enc_part.ciphertext);
        const Bytes authenticator = BytesIn(request->authenticator.ciphertext);
        bytes.insert(bytes.end(), authenticator.begin(), authenticator.end());
    } else if (message.length != 0 && decode_krb5_ap_rep(&message, reply.Receive()) == 0) {
        bytes = BytesIn(reply->enc_part.ciphertext);
    }
    return bytes;
}

enum class RequestPart { Ticket, Authenticator };

// The token with what the change makes of the part's content, encrypted again as client or KDC would.
template <class Change>
Bytes Reencrypted(const Bytes& i_token, RequestPart i_ePart, Change i_change) {
    const krb5_context context = FuzzContext();
    const krb5_data message = MessageIn(i_token);
    Krb5Owner<krb5_ap_req*, krb5_free_ap_req> request(context);
    Krb5Keytab keytab(context);
    krb5_keytab_entry entry{};
    MORWEN_INVARIANT(decode_krb5_ap_req(&message, request.Receive()) == 0);
    MORWEN_INVARIANT(krb5_kt_default(context, keytab.Receive()) == 0);
    MORWEN_INVARIANT(krb5_kt_get_entry(context, keytab.get(), request->ticket->server, 0, 0, &entry) == 0);
    MORWEN_INVARIANT(krb5_server_decrypt_ticket_keytab(context, keytab.get(), request->ticket) == 0);
    const bool bTicket = i_ePart == RequestPart::Ticket;
    const krb5_keyblock& key = bTicket ? entry.key : *request->ticket->enc_part2->session;
    const krb5_keyusage nUsage = bTicket ? KRB5_KEYUSAGE_KDC_REP_TICKET : KRB5_KEYUSAGE_AP_REQ_AUTH;
    krb5_enc_data& part = bTicket ? request->ticket->enc_part : request->authenticator;

    Bytes content(part.ciphertext.length);
    krb5_data plain{};
    plain.data = reinterpret_cast<char*>(content.data());
    plain.length = part.ciphertext.length;
    MORWEN_INVARIANT(krb5_c_decrypt(context, &key, nUsage, nullptr, &part, &plain) == 0);
    content.resize(plain.length);
    content = i_change(std::move(content));
    plain.data = reinterpret_cast<char*>(content.data());
    plain.length = static_cast<unsigned>(content.size());
    size_t nLength = 0;
    MORWEN_INVARIANT(krb5_c_encrypt_length(context, key.enctype, content.size(), &nLength) == 0);
    std::free(part.ciphertext.data);
    part.ciphertext.data = static_cast<char*>(std::malloc(nLength));
    part.ciphertext.length = static_cast<unsigned>(nLength);
    MORWEN_INVARIANT(krb5_c_encrypt(context, &key, nUsage, nullptr, &plain, &part) == 0);
    Krb5Owner<krb5_data*, krb5_free_data> encoded(context);
    MORWEN_INVARIANT(encode_krb5_ap_req(request.get(), encoded.Receive()) == 0);
    krb5_free_keytab_entry_contents(context, &entry);
    return MakeGssToken(GssTokenKind::ApRequest, BytesIn(*encoded.get()));
}

// The part with the list in place of its authorization data, which is the last field of both.
inline Bytes WithList(const Bytes& i_part, RequestPart i_ePart, const Bytes& i_list) {
    const uint8_t nField = i_ePart == RequestPart::Ticket ? 0xAA : 0xA8;
    std::span<const uint8_t> rest(i_part);
    const auto part = TakeDer(rest);
    auto fields = part ? OnlyDer(part->m_content, 0x30) : std::nullopt;
    Bytes kept;
    while (fields && !fields->empty()) {
        const auto field = TakeDer(*fields);
        MORWEN_INVARIANT(field.has_value());
        if (field->m_nTag != nField) {
            kept = kept + Der(field->m_nTag, Bytes(field->m_content.begin(), field->m_content.end()));
        }
    }
    MORWEN_INVARIANT(!kept.empty());
    return Der(part->m_nTag, Der(0x30, kept + Der(nField, i_list)));
}

// The ticket's part with a PAC of this logon information, signed as the KDC would.
template <class Change>
Bytes WithLogonInfo(const Bytes& i_part, Change i_change) {
    const krb5_context context = FuzzContext();
    krb5_data bytes{};
    bytes.data = reinterpret_cast<char*>(const_cast<uint8_t*>(i_part.data()));
    bytes.length = static_cast<unsigned>(i_part.size());
    Krb5Owner<krb5_enc_tkt_part*, krb5_free_enc_tkt_part> part(context);
    MORWEN_INVARIANT(decode_krb5_enc_tkt_part(&bytes, part.Receive()) == 0);
    Krb5Owner<krb5_authdata**, krb5_free_authdata> found(context);
    Krb5Owner<krb5_pac, krb5_pac_free> pac(context);
    Krb5Data info(context);
    Krb5Data sealed(context);
    Krb5Keytab keytab(context);
    krb5_keytab_entry entry{};
    MORWEN_INVARIANT(
        krb5_find_authdata(context, part->authorization_data, nullptr, KRB5_AUTHDATA_WIN2K_PAC, found.Receive()) == 0);
    MORWEN_INVARIANT(krb5_pac_parse(context, found.get()[0]->contents, found.get()[0]->length, pac.Receive()) == 0 &&
                     krb5_pac_get_buffer(context, pac.get(), KRB5_PAC_LOGON_INFO, info.Receive()) == 0);
    Bytes changed = i_change(BytesIn(*info));
    krb5_data buffer{};
    buffer.data = reinterpret_cast<char*>(changed.data());
    buffer.length = static_cast<unsigned>(changed.size());
    MORWEN_INVARIANT(krb5_kt_default(context, keytab.Receive()) == 0);
    Krb5Principal service(context);
    MORWEN_INVARIANT(krb5_parse_name(context, "morwen/localhost@FUZZ.TEST", service.Receive()) == 0);
    MORWEN_INVARIANT(krb5_kt_get_entry(context, keytab.get(), service.get(), 0, 0, &entry) == 0);
    MORWEN_INVARIANT(krb5_pac_init(context, pac.Receive()) == 0 &&
                     krb5_pac_add_buffer(context, pac.get(), KRB5_PAC_LOGON_INFO, &buffer) == 0 &&
                     krb5_pac_sign(context, pac.get(), part->times.authtime, part->client, &entry.key, &entry.key,
                                   sealed.Receive()) == 0);
    krb5_free_keytab_entry_contents(context, &entry);
    return WithList(i_part, RequestPart::Ticket, Within(Within(BytesIn(*sealed), KRB5_AUTHDATA_WIN2K_PAC)));
}

// The authenticator with these bytes in place of its checksum.
inline Bytes WithChecksum(Bytes i_authenticator, Bytes i_checksum) {
    krb5_data content{};
    content.data = reinterpret_cast<char*>(i_authenticator.data());
    content.length = static_cast<unsigned>(i_authenticator.size());
    Krb5Authenticator authenticator(FuzzContext());
    Krb5Owner<krb5_data*, krb5_free_data> encoded(FuzzContext());
    MORWEN_INVARIANT(decode_krb5_authenticator(&content, authenticator.Receive()) == 0);
    krb5_checksum& checksum = *authenticator->checksum;
    const krb5_checksum own = checksum;
    checksum.contents = i_checksum.data();
    checksum.length = static_cast<unsigned>(i_checksum.size());
    MORWEN_INVARIANT(encode_krb5_authenticator(authenticator.get(), encoded.Receive()) == 0);
    checksum = own;
    return BytesIn(*encoded.get());
}

}  // namespace morwen
