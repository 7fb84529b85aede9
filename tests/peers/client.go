// client.go raw|SPNEGO SERVICE: prints the first token of a logon by gokrb5, as Jgss.java does.
package main

import (
	"encoding/base64"
	"fmt"
	"log"
	"os"

	"github.com/jcmturner/gokrb5/v8/client"
	"github.com/jcmturner/gokrb5/v8/config"
	"github.com/jcmturner/gokrb5/v8/credentials"
	"github.com/jcmturner/gokrb5/v8/spnego"
)

func must(err error) {
	if err != nil {
		log.Fatal(err)
	}
}

func main() {
	configuration, err := config.Load(os.Getenv("KRB5_CONFIG"))
	must(err)
	cache, err := credentials.LoadCCache(os.Getenv("KRB5CCNAME")[len("FILE:"):])
	must(err)
	user, err := client.NewFromCCache(cache, configuration, client.DisablePAFXFAST(true))
	must(err)
	init, err := spnego.SPNEGOClient(user, os.Args[2]).InitSecContext()
	must(err)
	token, err := init.Marshal()
	if os.Args[1] == "raw" {
		token, err = init.(*spnego.SPNEGOToken).NegTokenInit.MechTokenBytes, nil
	}
	must(err)
	fmt.Println("t" + base64.StdEncoding.EncodeToString(token))
}
