// Jgss.java initiate|accept raw|SPNEGO SERVICE [BINDING tls|application]: one half of a logon through Java's own GSS-API, with channel
// bindings (hexadecimal) if there are any, as Java's TLS makes them or as applications do. Tokens come in as lines of Base64, and go
// out so with a "t" in front. The last line is "d" and the other side's name, or "e" and an error.
import java.io.BufferedReader;
import java.io.InputStreamReader;
import java.util.Base64;
import java.util.HexFormat;
import org.ietf.jgss.*;
import sun.security.jgss.krb5.internal.TlsChannelBindingImpl;

class Jgss {
    public static void main(String[] arguments) throws Exception {
        boolean initiate = arguments[0].equals("initiate");
        Oid[] mechanisms = {new Oid("1.2.840.113554.1.2.2"), new Oid("1.3.6.1.5.5.2")};
        GSSManager manager = GSSManager.getInstance();
        GSSName service = manager.createName(arguments[2], new Oid("1.2.840.113554.1.2.2.1"));
        GSSContext context = initiate ? manager.createContext(service, mechanisms[arguments[1].equals("raw") ? 0 : 1], null, 0)
            : manager.createContext(manager.createCredential(service, 0, mechanisms, GSSCredential.ACCEPT_ONLY));
        if (arguments.length > 3) {
            byte[] binding = HexFormat.of().parseHex(arguments[3]);
            context.setChannelBinding(arguments[4].equals("tls") ? new TlsChannelBindingImpl(binding) : new ChannelBinding(binding));
        }
        BufferedReader lines = new BufferedReader(new InputStreamReader(System.in));
        try {
            for (boolean first = initiate; !context.isEstablished(); first = false) {
                String line = first ? "" : lines.readLine();
                if (line == null) {
                    return; // the other side has refused, or is gone
                }
                byte[] token = Base64.getDecoder().decode(line);
                token = initiate ? context.initSecContext(token, 0, token.length) : context.acceptSecContext(token, 0, token.length);
                if (token != null) {
                    System.out.println("t" + Base64.getEncoder().encodeToString(token));
                }
            }
            System.out.println("d" + (initiate ? context.getTargName() : context.getSrcName()));
        } catch (GSSException error) {
            System.out.println("e" + error.getMessage());
        }
    }
}
