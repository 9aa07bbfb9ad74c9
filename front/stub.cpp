int stub; 
